// `quibly task`: parses typed tasks the way the app's entry field does and shows
// what was understood. With TEXT it explains one task in sentences; without, it
// reads one task per line from standard input and prints one result per task
// (blank lines are skipped), so scripts can parse many at once. --json prints the parsed records
// instead.

#include <date/tz.h>
#include <fmt/format.h>

#include <istream>
#include <ostream>

#include "ClockOptions.h"
#include "Commands.h"
#include "DueWords.h"
#include "Output.h"
#include "TaskParse.h"
#include "Text.h"

namespace quibly {

namespace {

using vobbo::ParsedTask;
using vobbo::Result;
using vobbo::TaskParse;

struct TaskOptions {
  bool json = false;
  ClockOptions clock;
  std::vector<std::string> words;
};

// The typed text with each recognised span in brackets.
std::string marked(std::string_view text, const ParsedTask& task) {
  std::string out;
  size_t byte = 0;
  size_t character = 0;
  auto advance = [&](size_t toCharacter) {
    size_t bytes = vobbo::Text::prefix(text.substr(byte), toCharacter - character).size();
    std::string_view piece = text.substr(byte, bytes);
    byte += bytes;
    character = toCharacter;
    return piece;
  };
  for (const vobbo::TaskToken& token : task.tokens) {
    out += advance(token.start);
    out += "[";
    out += advance(token.end);
    out += "]";
  }
  out += text.substr(byte);
  return out;
}

std::string ordinal(int n) {
  int tens = n % 100;
  const char* suffix = (tens >= 11 && tens <= 13) ? "th"
                       : n % 10 == 1              ? "st"
                       : n % 10 == 2              ? "nd"
                       : n % 10 == 3              ? "rd"
                                                  : "th";
  return fmt::format("{}{}", n, suffix);
}

std::string repeatWords(const vobbo::TaskRepeat& repeat) {
  static constexpr std::string_view kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                               "Thursday", "Friday", "Saturday"};
  switch (repeat.every) {
    case vobbo::TaskRepeat::Every::day:
      return "every day";
    case vobbo::TaskRepeat::Every::weekday:
      return "every weekday";
    case vobbo::TaskRepeat::Every::week:
      if (repeat.day && *repeat.day >= 1 && *repeat.day <= 7) {
        return fmt::format("every week on {}", kDays[*repeat.day - 1]);
      }
      return "every week";
    case vobbo::TaskRepeat::Every::month:
      return repeat.date ? fmt::format("every month on the {}", ordinal(*repeat.date))
                         : "every month";
  }
  return "";
}

std::string_view priorityWords(vobbo::TaskPriority priority) {
  switch (priority) {
    case vobbo::TaskPriority::high:
      return "high";
    case vobbo::TaskPriority::med:
      return "medium";
    case vobbo::TaskPriority::low:
      return "low";
  }
  return "";
}

std::string dueWords(const vobbo::TaskDue& due, const TaskParse::Now& now) {
  std::string words = vobbo::DueWords::text(due, now);
  if (!due.time) words += ", all day";
  // The words already hold the clock time, except for "in 20 minutes".
  bool soon = vobbo::DueWords::tone(due, now) == vobbo::DueWords::Tone::soon;
  vobbo::TaskDue shown{due.at, soon};
  return fmt::format("{} ({})", words, vobbo::DueWords::fullText(shown, now.zone));
}

void explain(std::ostream& out, std::string_view text, const ParsedTask& task,
             const TaskParse::Now& now) {
  out << vobbo::Text::sanitizeUTF8(marked(text, task)) << "\n";
  if (task.title.empty()) {
    out << "Nothing is left for a title once the recognised parts are taken out.\n";
  } else {
    out << fmt::format("The title is \"{}\".\n", vobbo::Text::sanitizeUTF8(task.title));
  }
  if (task.due) {
    out << fmt::format("It is due {}, in {} time.\n", dueWords(*task.due, now), now.zone.name());
  } else {
    out << "It has no due date.\n";
  }
  out << (task.repeat ? fmt::format("It repeats {}.\n", repeatWords(*task.repeat))
                      : "It does not repeat.\n");
  if (task.tags.empty()) {
    out << "It has no tags.\n";
  } else {
    out << fmt::format("{} {}.\n", task.tags.size() == 1 ? "Its tag is" : "Its tags are",
                       joinWords(task.tags, "and"));
  }
  out << (task.priority ? fmt::format("Its priority is {}.\n", priorityWords(*task.priority))
                        : "It has no priority.\n");
}

std::string summaryLine(std::string_view text, const ParsedTask& task, const TaskParse::Now& now) {
  std::string line = fmt::format("{} -> \"{}\"", marked(text, task), task.title);
  if (task.due) line += "; due " + dueWords(*task.due, now);
  if (task.repeat) line += "; repeats " + repeatWords(*task.repeat);
  if (!task.tags.empty()) line += "; tags " + joinWords(task.tags, "and");
  if (task.priority) line += fmt::format("; priority {}", priorityWords(*task.priority));
  return line + ".";
}

int runTask(const TaskOptions& options, Io& io) {
  auto zone = zoneFor(options.clock, io.env);
  if (!zone) {
    io.err << zone.error() << "\n";
    return options.clock.tz.empty() ? 1 : 2;
  }
  auto at = nowFor(options.clock, **zone);
  if (!at) {
    io.err << at.error() << "\n";
    return 2;
  }
  TaskParse::Now now{vobbo::TaskDue::fromMs(*at), **zone};
  if (!options.words.empty()) {
    std::string text = fmt::format("{}", fmt::join(options.words, " "));
    ParsedTask task = TaskParse::parse(text, now);
    if (options.json) {
      printPretty(io.out, vobbo::toJSON(task));
    } else {
      explain(io.out, text, task, now);
    }
    return 0;
  }
  std::string line;
  while (std::getline(io.in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    // A blank line holds no task; skipping it in both outputs keeps one
    // result per task.
    if (vobbo::Text::trim(line).empty()) continue;
    ParsedTask task = TaskParse::parse(line, now);
    io.out << (options.json ? vobbo::toJSON(task).encode()
                            : vobbo::Text::sanitizeUTF8(summaryLine(line, task, now)))
           << "\n";
  }
  return 0;
}

}  // namespace

void addTaskCommand(CLI::App& command, Io& io, int& status) {
  auto options = std::make_shared<TaskOptions>();
  command.add_flag("--json", options->json, "Print the parsed task as JSON");
  addClockOptions(command, options->clock);
  command.add_option(
      "text", options->words,
      "The task as typed; without it, one task per line is read from standard input");
  command.callback([options, &io, &status] { status = runTask(*options, io); });
}

}  // namespace quibly
