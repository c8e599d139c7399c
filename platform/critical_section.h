// A recursive lock between the threads of the process.
#pragma once

#include <pthread.h>

struct CRITICAL_SECTION {
    pthread_mutex_t mutex;
};

void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
