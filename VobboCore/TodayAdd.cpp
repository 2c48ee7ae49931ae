#include "TodayAdd.h"

#include "DueWords.h"

namespace vobbo {

TodayAdd::Landing TodayAdd::landing(const std::optional<TaskDue>& due, const TaskParse::Now& now) {
  if (!due || DueWords::tone(*due, now) != DueWords::Tone::later) return Landing{};
  return Landing{Landing::Kind::later, due->at};
}

}  // namespace vobbo
