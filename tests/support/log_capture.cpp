#include "support/log_capture.h"

#include <android/log.h>
#include <gtest/gtest.h>

LogCapture::LogCapture() { host_log_set_sink(&LogCapture::Sink, this); }

LogCapture::~LogCapture() { host_log_set_sink(nullptr, nullptr); }

void LogCapture::Sink(int prio, const char* tag, const char* text, void* user) {
  auto* self = static_cast<LogCapture*>(user);
  EXPECT_EQ(prio, ANDROID_LOG_DEBUG);
  EXPECT_STREQ(tag, "Vellora-v1.1.0");
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->texts_.push_back(text);
}

std::vector<std::string> LogCapture::Texts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return texts_;
}
