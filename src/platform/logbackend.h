// Where log records go: liblog on Android, standard error on Linux. Only log.cpp calls this.
#pragma once

#include <cstddef>

#include "platform/log.h"

namespace kelp::log_backend {

// Writes the prefix of a record to `out` and returns its length, at most `capacity`.
size_t Prefix(char* out, size_t capacity, LogSeverity severity, const char* tag,
              const char* function);

// Emits one whole record. `text` has one spare byte after its `length` bytes, for the backend's
// use.
void Emit(LogSeverity severity, const char* tag, char* text, size_t length);

}  // namespace kelp::log_backend
