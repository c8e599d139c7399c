// A static object that is made at compile time and never destroyed: threads may come to it until the process
// is gone, after the destructors of static objects have run.
#pragma once

template <class T>
union MEM_UNDESTROYED {
    constexpr MEM_UNDESTROYED() : object() {}
    constexpr ~MEM_UNDESTROYED() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
    T object;
};
