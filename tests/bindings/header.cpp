// The header alone, included twice, in a translation unit of a strict C++ compiler.
#include <talvex/talvex.h>

int header_is_enough();
int header_is_enough() {
  return TALVEX_LINK_DEVICE_NOT_FOUND + static_cast<int>(sizeof tLog) + TALVEX_INI_VALUE_SIZE;
}
