#include "Output.h"

#include <filesystem>
#include <ostream>

namespace quibly {

std::string joinWords(const std::vector<std::string>& items, std::string_view lastJoin) {
  std::string out;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += i + 1 == items.size() ? " " + std::string(lastJoin) + " " : ", ";
    out += items[i];
  }
  return out;
}

void printPretty(std::ostream& out, const vobbo::JSONValue& json) {
  out << json.encode(vobbo::JSONValue::Format::pretty) << "\n";
}

std::string absolutePath(const std::string& path) {
  std::error_code ec;
  std::filesystem::path full = std::filesystem::absolute(path, ec);
  if (ec) return path;
  std::string text = full.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace quibly
