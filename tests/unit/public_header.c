/* The public header alone, as a C99 host sees it. */
#include "talvex/talvex.h"

typedef char prefix_is_a_text[sizeof(TALVEX_FAILURE_PREFIX) == 10 ? 1 : -1];

extern int codes_are_constants(int code);
int codes_are_constants(int code) {
  switch (code) {
    case TALVEX_LINK_DEVICE_NOT_FOUND:
    case TALVEX_INI_ERR_NOT_FOUND:
    case TALVEX_CHECK_DIGITS_DIFFER:
    case TALVEX_BASE64_NO_TABLE:
    case TALVEX_APP_NO_SEPARATOR:
      return 1;
    default:
      return 0;
  }
}
