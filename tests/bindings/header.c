/* The header alone, included twice, in a translation unit of a strict C compiler. */
#include <talvex/talvex.h>

extern int header_is_enough(void);
int header_is_enough(void) {
  return TALVEX_LINK_DEVICE_NOT_FOUND + (int)sizeof tLog + TALVEX_INI_VALUE_SIZE;
}
