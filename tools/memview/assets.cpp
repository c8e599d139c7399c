#include "tools/memview/assets.h"

// Laid down by assets.S.
#define MEMVIEW_ASSET(symbol)                       \
    extern "C" const char memview_asset_##symbol[]; \
    extern "C" const char memview_asset_##symbol##_end[]

MEMVIEW_ASSET(page_html);
MEMVIEW_ASSET(page_css);
MEMVIEW_ASSET(page_js);
MEMVIEW_ASSET(dygraph_css);
MEMVIEW_ASSET(dygraph_js);
MEMVIEW_ASSET(d3_js);

namespace memview {
namespace {

struct Asset {
    std::string_view name;
    const char* begin;
    const char* end;
};

#define MEMVIEW_ENTRY(name, symbol) \
    { name, memview_asset_##symbol, memview_asset_##symbol##_end }

constexpr Asset all_assets[] = {
    MEMVIEW_ENTRY("page.html", page_html),   MEMVIEW_ENTRY("page.css", page_css),
    MEMVIEW_ENTRY("page.js", page_js),       MEMVIEW_ENTRY("dygraph.css", dygraph_css),
    MEMVIEW_ENTRY("dygraph.js", dygraph_js), MEMVIEW_ENTRY("d3.js", d3_js)};

}  // namespace

std::string_view asset(std::string_view name) {
    for (const Asset& one : all_assets) {
        if (one.name == name) return {one.begin, static_cast<std::size_t>(one.end - one.begin)};
    }
    return {};
}

}  // namespace memview
