#include "support/log_capture.h"

#include <android/log.h>

LogCapture::LogCapture() { host_log_set_sink(&LogCapture::Sink, this); }

LogCapture::~LogCapture() { host_log_set_sink(nullptr, nullptr); }

void LogCapture::Sink(int prio, const char* tag, const char* text, void* user) {
  auto* self = static_cast<LogCapture*>(user);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->lines_.push_back({prio, tag ? tag : "", text ? text : ""});
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::vector<std::string> LogCapture::Texts() const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) texts.push_back(line.text);
  return texts;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}
