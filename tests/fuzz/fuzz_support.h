// Helpers shared by the fuzz targets: a fatal check, a count of the library's
// log lines, and filling large buffers from a short pattern of the input.
#ifndef DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H
#define DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H

#include <android/log.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Abort so that libFuzzer keeps the input as a crash.
#define FUZZ_CHECK(cond)                                         \
  do {                                                           \
    if (!(cond)) {                                               \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond); \
      abort();                                                   \
    }                                                            \
  } while (0)

// Counts log lines instead of printing them, which would slow fuzzing down.
inline int& LogLines() {
  static int lines = 0;
  return lines;
}
inline void CountLine(int, const char*, const char*, void*) { ++LogLines(); }
inline void StartLogCount() {
  host_log_set_sink(CountLine, nullptr);
  LogLines() = 0;
}

// Copies the leading fixed-size record; missing bytes read as 0.
template <typename T>
size_t TakeRecord(const uint8_t* data, size_t size, T* record) {
  const size_t n = size < sizeof(T) ? size : sizeof(T);
  memset(record, 0, sizeof(T));
  memcpy(record, data, n);
  return n;
}

// Fills count elements by repeating pattern (zeros when it is empty).
template <typename T>
void Repeat(const uint8_t* pattern, size_t pattern_bytes, T* out, size_t count) {
  const size_t n = pattern_bytes / sizeof(T);
  if (n == 0) {
    memset(out, 0, count * sizeof(T));
    return;
  }
  for (size_t i = 0; i < count; ++i) memcpy(&out[i], pattern + (i % n) * sizeof(T), sizeof(T));
}

#endif  // DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H
