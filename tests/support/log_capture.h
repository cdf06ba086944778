// Captures the library's log lines through the host log stand-in's sink; every
// line must carry the library's priority and tag.
#ifndef DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H
#define DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

// Installs itself as the log sink for its lifetime.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  std::vector<std::string> Texts() const;

 private:
  static void Sink(int prio, const char* tag, const char* text, void* user);
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

#endif  // DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H
