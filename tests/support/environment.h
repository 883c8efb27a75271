#pragma once

#include <cstdlib>
#include <string>

// Empty when there is no such variable.
inline std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}
