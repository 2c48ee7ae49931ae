#pragma once
// Where a task lands when the person adds it from the Today card: on today's
// list when it has no due moment or is due today or earlier, otherwise on the
// later list with its due moment, so the person sees where it went.

#include <optional>
#include <string_view>
#include <utility>

#include "RawEnum.h"
#include "TaskParse.h"

namespace vobbo {

struct TodayAdd {
  struct Landing {
    enum class Kind { later, today };
    Kind kind = Kind::today;
    std::optional<double> at;  // for later: the due moment (seconds from the reference epoch)
    bool operator==(const Landing&) const = default;
  };

  static Landing landing(const std::optional<TaskDue>& due, const TaskParse::Now& now);
};

template <>
struct RawValues<TodayAdd::Landing::Kind> {
  static constexpr std::pair<TodayAdd::Landing::Kind, std::string_view> values[] = {
      {TodayAdd::Landing::Kind::later, "later"}, {TodayAdd::Landing::Kind::today, "today"}};
};

}  // namespace vobbo
