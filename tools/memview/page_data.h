#pragma once

#include <string>

#include "tools/memview/page.h"

namespace memview {

// The data of a page as JSON that can stand inside a script element: no "<" is left in it.
std::string page_data(const Page& page, const PageLimits& limits);

}  // namespace memview
