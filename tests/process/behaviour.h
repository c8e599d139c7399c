// What a host program can do: its first argument names the behaviour, which gets the arguments behind it.
#pragma once

#include <utility>

struct BEHAVIOUR {
    BEHAVIOUR(const char* behaviour_name, void (*action)(char** arguments))
        : name(behaviour_name), run(action), next(std::exchange(first, this)) {}

    const char* name;
    void (*run)(char** arguments);
    BEHAVIOUR* next;
    static inline constinit BEHAVIOUR* first = nullptr;
};
