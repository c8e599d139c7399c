#include "platform/resident_pages.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "platform/kept_errno.h"

namespace {

// The kernel's interface, which the system's headers may not know yet.
struct SCAN {
    std::uint64_t size = sizeof(SCAN);
    std::uint64_t flags = 0;
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t scanned = 0;  // where the scan ended
    std::uint64_t regions = 0;
    std::uint64_t most_regions = 0;
    std::uint64_t most_pages = 0;
    std::uint64_t inverted = 0;
    std::uint64_t all_of = 0;
    std::uint64_t any_of = 0;
    std::uint64_t told = 0;
};
constexpr unsigned long scan_pages = _IOWR('f', 16, SCAN);
constexpr std::uint64_t of_file = 1U << 2, present = 1U << 3, of_zeros = 1U << 5;

constexpr std::uint64_t end_of_addresses = (std::uint64_t{1} << 47) - 4096;

// How many regions were found from `begin` on; `begin` moves to where the scan ended. Less than 0: cannot be
// told.
int scan(int descriptor, std::uint64_t& begin, std::uint64_t end, std::uint64_t kind,
         std::span<PAGE_REGION> regions) {
    SCAN request;
    request.begin = begin;
    request.end = end;
    request.regions = reinterpret_cast<std::uint64_t>(regions.data());
    request.most_regions = regions.size();
    request.inverted = of_zeros;
    request.all_of = kind | of_zeros;
    request.told = present;
    const int found = ioctl(descriptor, scan_pages, &request);
    begin = request.scanned;
    return found;
}

}  // namespace

RESIDENT_PAGES::RESIDENT_PAGES(std::span<PAGE_REGION> room)
    : descriptor(open("/proc/thread-self/pagemap", O_RDONLY | O_CLOEXEC)), regions(room) {
    is_known = descriptor >= 0 && read_more();
}

RESIDENT_PAGES::~RESIDENT_PAGES() {
    const KEPT_ERRNO errno_is_kept;
    if (descriptor >= 0) close(descriptor);
}

bool RESIDENT_PAGES::read_more() {
    if (scanned >= end_of_addresses) return false;
    const int found = scan(descriptor, scanned, end_of_addresses, present, regions);
    if (found <= 0) scanned = end_of_addresses;
    at = 0;
    count = static_cast<std::size_t>(std::max(found, 0));
    return found > 0;
}

// To the first region that ends behind the address.
bool RESIDENT_PAGES::skip_to(std::uint64_t address) {
    for (;; ++at) {
        if (at == count && !read_more()) return false;
        if (regions[at].end > address) return true;
    }
}

std::uint64_t RESIDENT_PAGES::in(const MAPPING_LINE& mapping) {
    if (mapping.is_shared) return in_shared(mapping.begin, mapping.end);
    if (mapping.name.starts_with("[vvar")) return 0;
    std::uint64_t sum = 0;
    // Neighbours may share a region, so the last one stays for the next mapping.
    for (std::uint64_t from = mapping.begin; from < mapping.end && skip_to(from);) {
        const PAGE_REGION& region = regions[at];
        if (region.begin >= mapping.end) break;
        const std::uint64_t to = std::min(region.end, mapping.end);
        sum += to - std::max(region.begin, from);
        from = to;
    }
    return sum;
}

// Pages of devices are not of a file. Who asks for that has the kernel look at every page, so only here,
// where such pages can be.
std::uint64_t RESIDENT_PAGES::in_shared(std::uint64_t begin, std::uint64_t end) const {
    PAGE_REGION some[32];
    std::uint64_t sum = 0;
    while (begin < end) {
        const int found = scan(descriptor, begin, end, present | of_file, some);
        if (found <= 0) break;
        for (const PAGE_REGION& region : std::span(some).first(static_cast<std::size_t>(found)))
            sum += region.end - region.begin;
    }
    return sum;
}
