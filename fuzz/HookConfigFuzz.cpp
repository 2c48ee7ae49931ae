// Any settings bytes, for every agent: the file is either refused by all three
// operations alike, or install leaves exactly one entry of ours (and installing
// again changes nothing), and remove leaves none. Nothing crashes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "HookConfig.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vobbo::HookConfig;
  constexpr std::string_view kHelper = "/Applications/Qu'ibly $x/quibly-approve";
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const HookConfig::Target& target : HookConfig::Target::all("/home/fuzz")) {
    auto installed = HookConfig::install(bytes, target, kHelper);
    auto removed = HookConfig::remove(bytes, target);
    require(installed.ok() == removed.ok() &&
            installed.ok() == HookConfig::check(bytes, target).ok());
    if (!installed) continue;

    require(HookConfig::isInstalled(*installed, target));
    auto twice = HookConfig::install(*installed, target, kHelper);
    require(twice.ok() && *twice == *installed);
    auto undone = HookConfig::remove(*installed, target);
    require(undone.ok() && !HookConfig::isInstalled(*undone, target));
    require(!HookConfig::isInstalled(*removed, target));
  }
  return 0;
}
