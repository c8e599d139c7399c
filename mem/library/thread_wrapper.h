// What runs around every thread that the host's thread library starts.
#pragma once

// Puts the wrapper into that library's chain.
void mem_chain_thread_wrapper();
