// What is absent as a rule. Kept: that it is absent is worth no line in the log.
#pragma once

#include <string.h>

enum class Thing { kFile, kFolder, kItem };

struct UsuallyAbsent {
  Thing thing;
  const char* name;
};

inline constexpr UsuallyAbsent kUsuallyAbsent[] = {
    {Thing::kFile, "SAT.ini"},
    {Thing::kFolder, "Log"},
    {Thing::kItem, "FixarPorta"},
};

inline bool is_usually_absent(Thing thing, const char* name) {
  for (const UsuallyAbsent& known : kUsuallyAbsent) {
    if (known.thing == thing && strcmp(known.name, name) == 0) return true;
  }
  return false;
}
