#include "mem/bins/profile_bins.h"

#include <memory>
#include <utility>

#include "mem/base/internal_error.h"
#include "mem/base/tracking_word.h"
#include "mem/bins/label_stack.h"

std::atomic<MEM_PROFILE_BINS*> mem_tbb_profile_bins{nullptr};

MEM_PROFILE_BINS::~MEM_PROFILE_BINS() {
    while (frames != nullptr) delete std::exchange(frames, frames->next);
}

// A race of two first uses is settled by one exchange, and the loser's object goes. No once-flag will do: the
// allocation here can be an event, whose path is itself a first use on this very thread.
MEM_PROFILE_BINS& mem_create_profile_bins() {
    auto made = std::make_unique<MEM_PROFILE_BINS>();
    MEM_PROFILE_BINS* there = nullptr;
    if (mem_tbb_profile_bins.compare_exchange_strong(there, made.get(), std::memory_order_acq_rel,
                                                     std::memory_order_acquire))
        return *made.release();
    return *there;
}

namespace {

// The frame is allocated first, so that it counts neither for this bin nor as its growth.
void open_frame(MEM_PROFILE_BINS& all) {
    auto* frame = new MEM_PROFILE_BIN_FRAME;
    frame->next = all.frames;
    frame->start_bytes = mem_get_global_current().bytes;
    frame->saved_local_peak = mem_enter_local_region();
    all.frames = frame;
}

struct MEASURED {
    std::int64_t start_bytes = 0;
    std::int64_t end_bytes = 0;
    std::int64_t peak_bytes = 0;
};

MEASURED measure(const MEM_PROFILE_BINS& all) {
    const MEM_PROFILE_BIN_FRAME* frame = all.frames;
    mem_require(frame != nullptr, mem_conditions::bin_frame_is_open);
    const std::int64_t end_bytes = mem_get_global_current().bytes;
    return {frame->start_bytes, end_bytes, mem_exit_local_region(frame->saved_local_peak).bytes};
}

}  // namespace

void mem_open_profile_bin(const std::string& name, const std::string& tag) {
    if (mem_tbb_memory_tracking_enabled) {
        open_frame(mem_get_profile_bins());
        mem_push_bin_label(tag);
    }
    if (mem_tbb_bin_tags_enabled) {
        MEM_PROFILE_BINS& all = mem_get_profile_bins();
        if (!tag.empty()) all.tags.push_name(tag);
        all.bins.push_name(all.tags.get_curr_name() + "::" + name);
    }
}

void mem_close_profile_bin(const std::string& tag, std::uint64_t* start_bytes, std::uint64_t* end_bytes,
                           std::uint64_t* peak_bytes) {
    MEASURED measured;
    const bool measuring = mem_tbb_memory_tracking_enabled;
    if (measuring) {
        measured = measure(mem_get_profile_bins());
        mem_pop_bin_label(tag);
    }
    *start_bytes = static_cast<std::uint64_t>(measured.start_bytes);
    *end_bytes = static_cast<std::uint64_t>(measured.end_bytes);
    *peak_bytes = static_cast<std::uint64_t>(measured.peak_bytes);
    if (measuring) {
        MEM_PROFILE_BINS& all = mem_get_profile_bins();
        delete std::exchange(all.frames, all.frames->next);
    }
    if (mem_tbb_bin_tags_enabled) {
        MEM_PROFILE_BINS& all = mem_get_profile_bins();
        if (!tag.empty()) all.tags.pop(tag);
        all.bins.pop();
    }
}
