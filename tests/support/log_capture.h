// Captures the library's log lines through the host log stand-in's sink.
#ifndef DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H
#define DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

struct LogLine {
  int priority;
  std::string tag;
  std::string text;
};

// Installs itself as the log sink for its lifetime.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  std::vector<std::string> Texts() const;
  void Clear();

 private:
  static void Sink(int prio, const char* tag, const char* text, void* user);
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

#endif  // DOFRA_TESTS_SUPPORT_LOG_CAPTURE_H
