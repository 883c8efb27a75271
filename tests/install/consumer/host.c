#include <stdio.h>
#include <talvex/talvex.h>

int main(void) {
  return puts(VersaoDllTalvex()) < 0;
}
