// The library's one log convention: debug priority, one tag, and a prefix
// carrying the line number and the function name. Line numbers are fixed
// constants given by each caller, never __LINE__, so the log stays stable
// when files are edited.
#ifndef DOFRA_API_LOG_H
#define DOFRA_API_LOG_H

#include <android/log.h>

#define DOFRA_LOG_TAG "Vellora-v1.1.0"
#define DOFRA_LOG_PRIORITY 3

#define DOFRA_LOG(line, func, fmt, ...)                                                    \
  __android_log_print(DOFRA_LOG_PRIORITY, DOFRA_LOG_TAG, "L %d, %s: " fmt, (line), (func), \
                      ##__VA_ARGS__)

#endif  // DOFRA_API_LOG_H
