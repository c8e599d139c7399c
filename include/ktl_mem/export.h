// Marks what libktl_mem.so exports. Everything without this mark is hidden.
#pragma once

#define KTL_MEM_API __attribute__((visibility("default")))
