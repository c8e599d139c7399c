#include "mem/base/thread_state.h"

constinit thread_local MEM_THREAD_STATE mem_thread_state;
