#include "exact_arithmetic.h"

#include "JURN_api.h"

const char* MORVAX_Version_API(void) {
  return JURN_VERSION_STRING;
}
