/* The files of the page, byte for byte. Their paths come from the build. */

#define ASSET_BEGIN(symbol)                                                                  \
    .globl memview_asset_##symbol;  .hidden memview_asset_##symbol;                          \
    .globl memview_asset_##symbol##_end;  .hidden memview_asset_##symbol##_end;              \
    memview_asset_##symbol:

#define ASSET_END(symbol) memview_asset_##symbol##_end: .byte 0;

#define ASSET(symbol, path) ASSET_BEGIN(symbol) .incbin path; ASSET_END(symbol)

    .section .rodata
    ASSET(page_html, MEMVIEW_PAGE_HTML)
    ASSET(page_css, MEMVIEW_PAGE_CSS)
    ASSET(dygraph_css, MEMVIEW_DYGRAPH_CSS)
    ASSET(dygraph_js, MEMVIEW_DYGRAPH_JS)
    ASSET(d3_js, MEMVIEW_D3_JS)

    /* The scripts of the page share one scope, in this order. */
    ASSET_BEGIN(page_js)
    .incbin MEMVIEW_FORMAT_JS
    .incbin MEMVIEW_TIMES_JS
    .incbin MEMVIEW_CHARTS_JS
    .incbin MEMVIEW_PATH_TREES_JS
    .incbin MEMVIEW_FLAME_JS
    .incbin MEMVIEW_RESIDENT_JS
    .incbin MEMVIEW_TREEMAP_JS
    .incbin MEMVIEW_TABLES_JS
    .incbin MEMVIEW_PAGE_JS
    ASSET_END(page_js)

    .section .note.GNU-stack, "", @progbits
