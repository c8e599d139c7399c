// Functions whose frames have all the shapes that compilers give them. Compiled several times, at different
// optimisation, each time under a name of its own.
#pragma once

#include <span>

namespace shapes {

using VISIT = void (*)();

struct SHAPE {
    const char* name;
    void (*run)(VISIT visit, int size);
    int size;
};

std::span<const SHAPE> unoptimised();
std::span<const SHAPE> optimised();
std::span<const SHAPE> aggressive();

}  // namespace shapes
