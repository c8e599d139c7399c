// MEM_ALLOCATOR_REPORT: two debug lines at the library's exit.
#pragma once

class MEM_ALLOCATOR_REPORT {
  public:
    MEM_ALLOCATOR_REPORT();
    ~MEM_ALLOCATOR_REPORT();
    MEM_ALLOCATOR_REPORT(const MEM_ALLOCATOR_REPORT&) = delete;
    MEM_ALLOCATOR_REPORT& operator=(const MEM_ALLOCATOR_REPORT&) = delete;

  private:
    const bool debug_msg;  // as it was when the library started
};
