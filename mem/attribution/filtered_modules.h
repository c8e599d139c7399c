// The modules whose frames are never held responsible, by their names alone.
#pragma once

#include <string_view>

// `name` is a module's base name (platform/module_name.h). Allocates nothing; safe in a hook.
bool mem_module_name_is_filtered(std::string_view name);
