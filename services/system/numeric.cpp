#include "support/numeric.h"

#include "services/system/log.h"

void logFalse(const char* function, const char* file, unsigned int line) {
    errorMsg("expectation failed at %s (%s:%u)\n", function, file, line);
}
