#include "core/oru_report.h"

#include <cstdio>

extern "C" ORU_API const char *const oru_error_string[13] = {
    "Good! Normal return!",
    "Your input params are wrong!",
    "Allocating memory failure! ",
    "Current version can not support!",
    "Opening file errors!",
    "Data are uninitialized!",
    "Unknown error!",
    "Arriving the end of the file!",
    "Data are waiting!",
    "Data length is not enough!",
    "Data was already exits!",
    "Data not found!",
    "Faled to lock thread",
};

namespace oru {

void report(const char *message, const char *file, int line) {
  std::printf("Error occurred: %s \nError position:\nFile:%s:%d\n", message, file, line);
}

int message_index(uint32_t status) {
  switch (status) {
    case ORU_RET_OK: return 0;
    case ORU_RET_ERR_PARA: return 1;
    case ORU_RET_ERR_MEMORY: return 2;
    case ORU_RET_ERR_NOT_SUPPORT: return 3;
    case ORU_RET_ERR_OPEN_FILE: return 4;
    case ORU_RET_ERR_UNINITIALIZED: return 5;
    case ORU_RET_ERR_UNKNOWN: return 6;
    case ORU_RET_ERR_END_OF_FILE: return 7;
    case ORU_RET_ERR_WAITING: return 8;
    case ORU_RET_ERR_DATA_LENGTH: return 9;
    case ORU_RET_ERR_EXISTS: return 10;
    case ORU_RET_ERR_NOT_FOUND: return 11;
    default: return -1;
  }
}

void report_status(uint32_t status, const char *file, int line) {
  const int index = message_index(status);
  if (index >= 0) report(oru_error_string[index], file, line);
}

}  // namespace oru
