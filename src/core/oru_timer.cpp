// Wall-clock timer with running statistics that restart every `period` measurements.
#include <sys/time.h>

#include <cfloat>
#include <cstdio>
#include <cstring>

#include "core/oru_scratch.h"
#include "oru_core.h"

extern "C" {

ORU_API double oru_get_current_system_time(void) {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return double(tv.tv_sec) * 1000.0 + double(tv.tv_usec) * 0.001;
}

ORU_API oru_timer *oru_create_timer(const char *name, int64_t period) {
  if (!name || std::strlen(name) > 255) return nullptr;
  oru_timer *t = oru::alloc_zeroed<oru_timer>();
  if (!t) return nullptr;
  std::strcpy(t->name, name);
  t->min = DBL_MAX;
  t->start = DBL_MAX;
  t->period = period;
  return t;
}

ORU_API uint32_t oru_timer_start(oru_timer *timer) {
  if (!timer) return ORU_RET_ERR_PARA;
  timer->start = oru_get_current_system_time();
  return ORU_RET_OK;
}

ORU_API uint32_t oru_timer_stop(oru_timer *timer) {
  if (!timer) return ORU_RET_ERR_PARA;
  const double e = oru_get_current_system_time() - timer->start;
  timer->current = e;
  if (e < 0) {  // start still holds the largest double: never started
    std::printf("ORU_WARNNING:call oru_timer_start() before calling oru_timer_stop()\n");
    return ORU_RET_ERR_PARA;
  }
  if (timer->count >= timer->period) {
    timer->count = 1;
    timer->total = timer->max = timer->min = e;
  } else {
    ++timer->count;
    timer->total += e;
    if (e < timer->min) timer->min = e;
    if (e > timer->max) timer->max = e;
  }
  timer->start = DBL_MAX;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_timer_log(const oru_timer *timer) {
  if (!timer) return ORU_RET_ERR_PARA;
  std::printf("ORU_INFO: [Timer %s] num iter: %lld, current: %f, avg: %f, max: %f, min %f\n", timer->name,
              static_cast<long long>(timer->count), timer->current,
              timer->total / static_cast<double>(timer->count), timer->max, timer->min);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_timer(oru_timer **timer) {
  if (!timer || !*timer) return ORU_RET_ERR_PARA;
  oru_free(*timer);
  *timer = nullptr;
  return ORU_RET_OK;
}

}  // extern "C"
