/* Only <JURN/...> is found, so no header of the library can stand in for one of the user's. */
#include <stdio.h>

#include <JURN/Filter_control.h>

#ifdef __has_include
#if __has_include("functions.h")
#error "functions.h is on the path"
#endif
#endif

int main(void) {
  puts(MORVAX_Version_API());
  return 0;
}
