#include "tools/memrun/environment.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "tools/memrun/contract.h"

namespace memrun {

namespace {

using Entries = std::vector<std::string>;

void add(Entries& entries, std::string_view name, const std::string& value) {
    entries.push_back(std::string(name) + "=" + value);
}

void add_switch(Entries& entries, bool on, std::string_view name) {
    if (on) add(entries, name, "1");
}

template <class Number>
void add_number(Entries& entries, Number value, bool given, std::string_view name) {
    if (given) add(entries, name, std::to_string(value));
}

void add_tracking(Entries& entries, const Options& options) {
    for (const MEM_TRACKING_SETTING& setting : mem_tracking_settings)
        add_switch(entries, options.tracks(setting.bits), setting.variable);
    add_switch(entries, options.tracks(MEM_TRACKING_CALL_PATHS), "mem_profile_share_call_paths");
    add_switch(entries, options.follow_forks, "mem_track_forked_children");
}

void add_settings(Entries& entries, const Options& options) {
    add_number(entries, options.sample_period, options.sample_period != 0,
               "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD");
    add_number(entries, options.peak_step, true, "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD");
    add_number(entries, options.ignore_depth.value_or(0), options.ignore_depth.has_value(),
               "mem_profile_stack_trace_ignore_depth");
    add_switch(entries, options.unknown_lines, "mem_profile_with_incomplete_fileline_info");
    add_switch(entries, options.unknown_lines, "mem_profile_with_best_names");
    add_switch(entries, true, "mem_names_are_served");
    if (!options.filters.empty())
        add(entries, "mem_user_defined_filters_file", std::filesystem::absolute(options.filters).string());
    add_number(entries, options.fill_new.value_or(0), options.fill_new.has_value(), "mem_alloc_pattern");
    add_number(entries, options.fill_freed.value_or(0), options.fill_freed.has_value(), "mem_free_pattern");
}

void add_agent_orders(Entries& entries, const Options& options, const Launch& launch) {
    add(entries, dir_variable, launch.output);
    add(entries, name_variable, launch.name);
    add(entries, pid_variable, std::to_string(launch.pid));
    add(entries, program_variable, launch.tracked);
    add_switch(entries, options.follow_children, follow_variable);
    add_switch(entries, options.follow_forks, forks_variable);
    add_switch(entries, options.log, log_variable);
    add_switch(entries, options.mappings, mappings_variable);
}

// The guard stands in front of the allocator. That comes next, so that it serves every later object; the
// agent behind the tracker, since it stands on it. Where the early start lies makes no difference.
std::string preload_list(const Entries& user, const Options& options, const Libraries& libraries) {
    std::string list =
        libraries.allocator + ":" + libraries.tracker + ":" + libraries.agent + ":" + libraries.early_start;
    if (options.fill_new || options.fill_freed) list.insert(0, libraries.fill_guard + ":");
    for (const std::string& entry : user)
        if (name_of(entry) == "LD_PRELOAD" && entry.size() > sizeof "LD_PRELOAD")
            list += ":" + entry.substr(sizeof "LD_PRELOAD");
    return list;
}

// The user's own environment. Where this launcher was started by a program that another one follows, what
// that one governs is taken out, and what it had put aside is put back.
Entries without_launcher(const Entries& found) {
    const bool is_followed = std::any_of(found.begin(), found.end(), [](const std::string& entry) {
        return name_of(entry) == follow_variable;
    });
    Entries entries;
    for (const std::string& entry : found) {
        if (is_followed && entry.starts_with(saved_prefix))
            entries.push_back(entry.substr(saved_prefix.size()));
        else if (!entry.starts_with(own_prefix) && !(is_followed && is_governed(name_of(entry))))
            entries.push_back(entry);
    }
    return entries;
}

}  // namespace

std::vector<std::string> tracked_environment(const std::vector<std::string>& found, const Options& options,
                                             const Libraries& libraries, const Launch& launch) {
    const Entries user = without_launcher(found);
    Entries entries;
    for (const std::string& entry : user)
        entries.push_back(is_governed(name_of(entry)) ? std::string(saved_prefix) + entry : entry);
    add(entries, "LD_PRELOAD", preload_list(user, options, libraries));
    add_tracking(entries, options);
    add_settings(entries, options);
    add_agent_orders(entries, options, launch);
    return entries;
}

}  // namespace memrun
