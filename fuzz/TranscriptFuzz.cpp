// Arbitrary bytes folded as a transcript of the agent the first byte picks.
// Nothing may crash, folding line by line must give the state folding all lines
// at once gives, and the state must survive its own JSON coding.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "Transcript.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vobbo;
  if (size == 0) return 0;
  auto cases = allCases<AgentKind>();
  AgentKind agent = cases[data[0] % cases.size()];
  std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  std::vector<std::string_view> lines;
  for (std::string_view rest = text; !rest.empty();) {
    size_t end = rest.find('\n');
    lines.push_back(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  TranscriptState whole;
  Transcript::fold(agent, lines, whole);
  TranscriptState stepwise;
  for (std::string_view line : lines) Transcript::foldLine(agent, line, stepwise);
  if (!(whole == stepwise)) std::abort();
  auto json = JSONValue::parse(toJSON(whole).encode());
  if (!json || !fromJSON<TranscriptState>(*json)) std::abort();
  return 0;
}
