// The system's header and, as on macOS, one function more; the tests define it.
#pragma once

#include_next <pthread.h>

extern "C" unsigned int pthread_mach_thread_np(pthread_t thread);
