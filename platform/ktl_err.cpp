#include "platform/ktl_err.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "platform/stack_walk.h"

namespace {

// A line of fixed size: what does not fit is cut, the newline never.
class ERROR_LINE {
  public:
    void append(const char* text, std::size_t length) {
        length = std::min(length, sizeof text_ - 1 - size_);
        std::memcpy(text_ + size_, text, length);
        size_ += length;
    }
    void append(const char* text) { append(text, std::strlen(text)); }
    void append(int number) {
        char digits[16];
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
        append(digits, static_cast<std::size_t>(end.ptr - digits));
    }
    void write() {
        text_[size_++] = '\n';
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text_, size_);
    }

  private:
    char text_[1024];
    std::size_t size_ = 0;
};

class STACK_WALK_UNWINDER final : public ERR_UNWINDER {
  public:
    const char* get_name() const override { return "call frame information"; }

    std::int32_t capture_stack(std::uint64_t* pcs, std::int32_t max_frames, std::int32_t skip,
                               std::int32_t zero) override;
};

// A walk that skips some frames and gives the next ones.
std::int32_t walk_frames(STACK_WALK* walk, std::uint64_t* pcs, std::int32_t max_frames, std::int32_t skip) {
    constexpr std::int32_t CHUNK = 16;
    std::uint64_t skipped[CHUNK];
    while (skip > 0) {
        const std::int32_t wanted = std::min(skip, CHUNK);
        if (walk->next(skipped, wanted) < wanted) return 0;
        skip -= wanted;
    }
    return walk->next(pcs, max_frames);
}

std::uint64_t this_place() {
    std::uint64_t place;
    asm("lea 0(%%rip), %0" : "=r"(place));
    return place;
}

// The frame of this function counts as the first one, which STACK_WALK does not see.
__attribute__((noinline)) std::int32_t STACK_WALK_UNWINDER::capture_stack(std::uint64_t* pcs,
                                                                          std::int32_t max_frames,
                                                                          std::int32_t skip, std::int32_t) {
    if (max_frames < 1) return 0;
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    const std::int32_t own = skip < 1 ? 1 : 0;
    if (own == 1) pcs[0] = this_place();
    STACK_WALK walk(start);
    std::int32_t count = walk_frames(&walk, pcs + own, max_frames - own, skip - 1);
    if (walk.went_astray()) {
        STACK_WALK again(start, true);
        count = walk_frames(&again, pcs + own, max_frames - own, skip - 1);
    }
    return own + count;
}

constinit STACK_WALK_UNWINDER default_unwinder;

}  // namespace

void err_report_internal_error(const char* condition, const char* subsystem, const char* source, int line) {
    ERROR_LINE text;
    text.append("Internal error: ");
    text.append(condition);
    text.append(" (");
    text.append(subsystem);
    text.append(", ");
    text.append(source);
    text.append(":");
    text.append(line);
    text.append(")");
    text.write();
    std::abort();
}

ERR_UNWINDER* ERR_UNWINDER::get_default_unwinder() {
    return &default_unwinder;
}
