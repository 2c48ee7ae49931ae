// Any bytes, as the event of any agent: a request comes out or nothing does;
// a request that comes out survives the wire unchanged and keeps its summary
// within 400 characters.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ApproveWire.h"
#include "Text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vobbo::ApproveWire;
  std::string_view event(reinterpret_cast<const char*>(data), size);
  for (auto agent : vobbo::allCases<ApproveWire::Agent>()) {
    auto request = ApproveWire::request(event, agent, 1);
    if (!request) continue;
    if (vobbo::Text::characterCount(request->summary) > ApproveWire::kMaxSummary) std::abort();
    std::string line = ApproveWire::line(*request);
    if (line.find('\n') != line.size() - 1) std::abort();
    line.pop_back();
    auto back = ApproveWire::parse<ApproveWire::Request>(line);
    // Summaries built from invalid UTF-8 come back repaired; everything else is exact.
    if (!back || (vobbo::Text::isValidUTF8(event) && !(*back == *request))) std::abort();
  }
  return 0;
}
