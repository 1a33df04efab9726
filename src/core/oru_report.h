// The one error report of the library and the macros that print it where a failure happens.
#ifndef ORU_CORE_REPORT_H
#define ORU_CORE_REPORT_H

#include <cstdint>

#include "oru_core.h"

namespace oru {

// Prints "Error occurred: <message> \nError position:\nFile:<file>:<line>\n" on stdout.
void report(const char *message, const char *file, int line);

// Message index of a status code in oru_error_string, or -1 for a code that has none.
int message_index(uint32_t status);

// Reports a status received from a callee; an unknown code prints nothing.
void report_status(uint32_t status, const char *file, int line);

}  // namespace oru

#define ORU_REPORT(message) ::oru::report((message), __FILE__, __LINE__)
#define ORU_REPORT_STATUS(status) ::oru::report_status((status), __FILE__, __LINE__)

// Report the table message of a status and return the status.
#define ORU_FAIL(status)          \
  do {                            \
    ORU_REPORT_STATUS(status);    \
    return (status);              \
  } while (0)

// Report a message of the unit's own and return a value (a status or null).
#define ORU_FAIL_MSG(result, message) \
  do {                                \
    ORU_REPORT(message);              \
    return (result);                  \
  } while (0)

#endif
