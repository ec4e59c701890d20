// This host gives files the time of its coarse clock, the platform that of its
// clock.
#pragma once
#pragma GCC system_header
#include_next <time.h>

#undef CLOCK_REALTIME
#define CLOCK_REALTIME CLOCK_REALTIME_COARSE
