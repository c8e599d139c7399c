// What happens when an allocation fails. All settings are process-wide here, whichever thread makes them.
#pragma once

#include <cstddef>

// Returns 0 to give up, anything else to have the allocation tried again.
using NEW_HANDLER = int (*)(std::size_t size);

// Installs the handler of a failed operator new; null removes it. The size that the handler gets is always
// 0. Returns the handler that was installed through this call before.
NEW_HANDLER _set_new_handler(NEW_HANDLER handler);

// Whether a failed malloc of the C library shall run the handler. It cannot here: the C library's malloc
// gives null and asks nobody. The mode is kept and the one before it returned; what serves malloc in its
// place (tcmalloc_minimal) has a mode of its own.
int _set_new_mode(int mode);

// The same for the allocator of the module "tbbxmalloc", when the process holds it; else nothing happens.
// Calls the loader.
void tbbx_set_new_mode(int mode);

// Usable bytes of a block of the heap that serves malloc; 0 for null.
std::size_t _msize(void* block);
