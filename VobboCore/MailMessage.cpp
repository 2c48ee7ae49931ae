#include "MailMessage.h"

#include <unordered_map>

namespace vobbo {

std::vector<MailThread> MailThread::group(std::vector<MailMessage> messages) {
  std::vector<MailThread> threads;
  std::unordered_map<std::string, size_t> indexOf;
  for (MailMessage& message : messages) {
    auto [at, isNew] = indexOf.try_emplace(message.threadId, threads.size());
    if (isNew) threads.push_back(MailThread{message.threadId, message.subject, {}});
    threads[at->second].messages.push_back(std::move(message));
  }
  for (MailThread& thread : threads) {
    for (MailMessage& message : thread.messages) {
      message.threadSize = static_cast<int64_t>(thread.messages.size());
    }
  }
  return threads;
}

}  // namespace vobbo
