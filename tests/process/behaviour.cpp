// The main program of the hosts.
#include "tests/process/behaviour.h"

#include <cstring>

int main(int, char** arguments) {
    for (const BEHAVIOUR* behaviour = BEHAVIOUR::first; behaviour != nullptr; behaviour = behaviour->next)
        if (std::strcmp(behaviour->name, arguments[1]) == 0) return behaviour->run(arguments + 2), 0;
    return 64;
}
