#include "unwind_shapes.h"

#include <alloca.h>

#include <cstdlib>
#include <stdexcept>

namespace shapes {

namespace {

#define KEPT __attribute__((noinline))

// Keeps calls from becoming jumps, and locals from being dropped.
KEPT void touch(volatile void* place) {
    asm volatile("" : : "r"(place) : "memory");
}

KEPT void recursion(VISIT visit, int depth) {
    volatile char local[24];
    touch(local);
    depth == 0 ? visit() : recursion(visit, depth - 1);
    touch(local);
}

KEPT void variable_length(VISIT visit, int size) {
    void* block = alloca(static_cast<std::size_t>(size));
    touch(block);
    if (size < 3000) variable_length(visit, size * 3);
    visit();
    touch(block);
}

KEPT void realigned(VISIT visit, int size) {
    alignas(128) volatile char local[128];
    void* block = alloca(static_cast<std::size_t>(size));
    touch(block);
    if (size < 300) realigned(visit, size * 2);
    visit();
    touch(local);
}

KEPT void large(VISIT visit, int) {
    volatile char local[300000];
    touch(local);
    visit();
    touch(local);
}

VISIT visit_in_comparison;

KEPT void sorting(VISIT visit, int size) {
    int values[] = {5, 3, 9, 1};
    visit_in_comparison = visit;
    std::qsort(values, static_cast<std::size_t>(size), sizeof values[0],
               [](const void* left, const void* right) {
                   visit_in_comparison();
                   return *static_cast<const int*>(left) - *static_cast<const int*>(right);
               });
    touch(values);
}

struct VISIT_AT_END {
    VISIT visit;
    ~VISIT_AT_END() { visit(); }
};

KEPT void throw_through(VISIT visit, int depth) {
    const VISIT_AT_END guard{visit};
    if (depth == 0) throw std::runtime_error("shape");
    throw_through(visit, depth - 1);
}

KEPT void exceptions(VISIT visit, int depth) {
    try {
        throw_through(visit, depth);
    } catch (const std::exception&) {
        visit();
    }
    touch(&depth);
}

const SHAPE ALL[] = {{"recursion", recursion, 100}, {"variable length", variable_length, 17},
                     {"realigned", realigned, 16},  {"large", large, 0},
                     {"sorting", sorting, 4},       {"exceptions", exceptions, 3}};

}  // namespace

std::span<const SHAPE> SHAPES_NAME() {
    return ALL;
}

}  // namespace shapes
