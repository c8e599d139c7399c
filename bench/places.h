// Ten thousand places in the code that allocate. What stands at one is a call site of its own.
#pragma once

#include <array>
#include <cstddef>

using ALLOCATE = void* (*)(std::size_t);
inline constexpr std::size_t most_places = 10'000;
extern const std::array<ALLOCATE, most_places> places;
