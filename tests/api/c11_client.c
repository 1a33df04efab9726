/* A C11 client of the umbrella header: it compiles as C, links the shared library
 * and checks a few results through the exported calls. Exit status 0 is a pass. */
#include <stdio.h>
#include <string.h>

#include "orucore.h"

static int failures = 0;

#define EXPECT(cond)                                        \
  do {                                                      \
    if (!(cond)) {                                          \
      printf("c11 client: failed: %s (line %d)\n", #cond, __LINE__); \
      ++failures;                                           \
    }                                                       \
  } while (0)

static void check_allocator(void) {
  void *p = oru_malloc(100);
  EXPECT(p != NULL && ((uintptr_t)p & 31u) == 0);
  EXPECT(oru_realloc(p, 10) == p);
  oru_free(p);
  EXPECT(oru_malloc(0) == NULL);
}

static void check_darray(void) {
  oru_darray *a = oru_create_darray(&oru_darray_str_type);
  const char *word = "orucore";
  EXPECT(a != NULL);
  EXPECT(oru_darray_push_back(a, &word) == ORU_RET_OK);
  EXPECT(a->size == 1 && strcmp(((char **)a->data)[0], word) == 0);
  EXPECT(oru_release_darray(&a) == ORU_RET_OK && a == NULL);
}

static void check_tables(void) {
  EXPECT(strcmp(oru_error_string[2], "Allocating memory failure! ") == 0);
  EXPECT(oru_data_type_bytes[22] == 12 && oru_data_type_bytes[32 + 22] == 3);
  EXPECT(strcmp(oru_get_cpu_hardware_feature_name(ORU_CPU_NEON), "NEON") == 0);
}

int main(void) {
  check_allocator();
  check_darray();
  check_tables();
  if (failures == 0) printf("c11 client: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
