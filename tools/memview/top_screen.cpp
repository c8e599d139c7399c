#include "tools/memview/top_screen.h"

#include <langinfo.h>
#include <ncurses.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "tools/memview/units.h"

namespace memview {
namespace {

constexpr int refresh_ms = 1000;
constexpr std::size_t longest_course = 600;
constexpr int head_lines = 6;

// The terminal as ncurses has it, for a scope.
class CursesScope {
  public:
    CursesScope() {
        std::setlocale(LC_ALL, "");
        initscr();
        cbreak();
        noecho();
        keypad(stdscr, TRUE);
        curs_set(0);
        set_escdelay(50);
        const char* no_colour = std::getenv("NO_COLOR");
        if (has_colors() && (no_colour == nullptr || *no_colour == 0)) {
            start_color();
            use_default_colors();
            init_pair(1, COLOR_RED, -1);
            init_pair(2, COLOR_GREEN, -1);
        }
    }
    ~CursesScope() { endwin(); }
    CursesScope(const CursesScope&) = delete;
    CursesScope& operator=(const CursesScope&) = delete;
};

bool is_unicode() {
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

// No character stands behind the last column, however wide the terminal takes it to be.
void put(int row, int column, const std::string& text, int width) {
    if (column >= width || row >= LINES) return;
    std::string shown = shortened(text, static_cast<std::size_t>(width - column));
    constexpr std::string_view ellipsis = "\u2026";
    for (std::size_t at = 0; !is_unicode() && (at = shown.find(ellipsis, at)) != std::string::npos;)
        shown.replace(at, ellipsis.size(), "~");
    mvaddstr(row, column, shown.c_str());
}

// Red for what grew, green for what shrank, where there is colour; the sign shows it anyway.
void put_change(int row, int column, std::int64_t change, int width) {
    const int pair = change > 0 ? 1 : 2;
    const bool coloured = change != 0 && has_colors() && COLOR_PAIRS > 2;
    if (coloured) attron(COLOR_PAIR(pair));
    const std::string text = change == 0 ? "" : human_change(change);
    put(row, column + std::max(0, 11 - static_cast<int>(display_width(text))), text, width);
    if (coloured) attroff(COLOR_PAIR(pair));
}

void put_right(int row, int column, int cells, const std::string& text, int width) {
    put(row, column + std::max(0, cells - static_cast<int>(display_width(text))), text, width);
}

// Heights in characters that every terminal has.
std::string plain_course(const std::vector<std::int64_t>& course, std::size_t width) {
    static constexpr std::string_view heights = "_.-=+*#";
    const std::int64_t highest = std::max<std::int64_t>(1, *std::max_element(course.begin(), course.end()));
    std::string text;
    for (std::size_t i = course.size() - std::min(width, course.size()); i < course.size(); ++i) {
        const std::int64_t share = std::max<std::int64_t>(0, course[i]) / (highest / 7 + 1);
        text += heights[static_cast<std::size_t>(share)];
    }
    return text;
}

std::string course_text(const std::vector<std::int64_t>& course, std::size_t width) {
    return "course " + (is_unicode() ? sparkline(course, width) : plain_course(course, width));
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "no tracked process runs just now" : text;
}

std::string mark_name() {
    char text[32];
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

}  // namespace

void TopScreen::show() {
    using Clock = std::chrono::steady_clock;
    const CursesScope curses;
    course_.push_back(look_.bytes);
    auto next = Clock::now() + std::chrono::milliseconds(refresh_ms);
    for (;;) {
        draw();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        timeout(std::max<int>(0, static_cast<int>(left)));
        const int key = getch();
        if (key != ERR && !handle(key)) return;
        if (Clock::now() < next) continue;
        look_again();
        next = Clock::now() + std::chrono::milliseconds(refresh_ms);
    }
}

void TopScreen::look_again() {
    look_ = run_.look();
    course_.push_back(look_.bytes);
    if (course_.size() > longest_course) course_.erase(course_.begin());
}

bool TopScreen::handle(int key) {
    if (key == KEY_RESIZE) return true;
    if (is_searching_) return handle_search(key), true;
    if (key == 'q') return false;
    if (key == '/') {
        is_searching_ = true;
        search_.clear();
    }
    if (key == 'm') told_ = run_.order("mark", mark_name());
    if (key == 'c') told_ = run_.order("checkpoint", "");
    return true;
}

void TopScreen::handle_search(int key) {
    constexpr int escape = 27;
    if (key == '\n' || key == KEY_ENTER) {
        is_searching_ = false;
    } else if (key == escape) {
        is_searching_ = false;
        search_.clear();
    } else if (key == KEY_BACKSPACE || key == 127 || key == '\b') {
        if (!search_.empty()) search_.pop_back();
    } else if (key >= ' ' && key < 256) {
        search_ += static_cast<char>(key);
    }
}

void TopScreen::draw() {
    int height = 0;
    int width = 0;
    getmaxyx(stdscr, height, width);
    erase();
    draw_head(width);
    draw_sites(height, width);
    draw_foot(height, width);
    refresh();
}

void TopScreen::draw_head(int width) {
    attron(A_BOLD);
    put(0, 0, joined(look_.processes), width);
    attroff(A_BOLD);
    put(1, 0,
        "holds " + human_bytes(look_.bytes) + " in " + grouped(look_.blocks) + " blocks, peak " +
            human_bytes(look_.peak) + ", resident " + human_bytes(look_.resident),
        width);
    std::string events = grouped(static_cast<std::int64_t>(look_.events_per_second)) + " events a second";
    if (look_.seconds_since_event >= 1)
        events +=
            ", the last one " + grouped(static_cast<std::int64_t>(look_.seconds_since_event)) + " s ago";
    put(2, 0, look_.memory.empty() ? events : events + "; " + look_.memory, width);
    put(3, 0, course_text(course_, static_cast<std::size_t>(std::max(1, width - 8))), width);
    attron(A_REVERSE);
    mvhline(head_lines - 1, 0, ' ', width);
    put(head_lines - 1, 0, "      bytes     change      blocks  place  function", width);
    attroff(A_REVERSE);
}

void TopScreen::draw_sites(int height, int width) {
    if (!look_.knows_sites)
        put(head_lines, 0, "Call sites are not shown: the run was started with --no-paths.", width);
    int row = head_lines;
    for (const LiveSite& site : look_.sites) {
        if (row >= height - 1) return;
        if ((site.place + " " + site.function).find(search_) == std::string::npos) continue;
        put_right(row, 0, 11, human_bytes(site.bytes), width);
        put_change(row, 11, site.change, width);
        put_right(row, 22, 12, grouped(site.blocks), width);
        const auto room = static_cast<std::size_t>(std::max(8, (width - 36) / 2));
        const std::string place = shortened_path(site.place, room);
        put(row, 36, place, width);
        put(row, 36 + static_cast<int>(display_width(place)) + 2, site.function, width);
        ++row;
    }
}

void TopScreen::draw_foot(int height, int width) {
    const std::string keys = "m mark  c checkpoint  / search  q quit";
    if (is_searching_)
        put(height - 1, 0, "/" + search_, width);
    else if (!told_.empty())
        put(height - 1, 0, told_, width);
    else
        put(height - 1, 0, search_.empty() ? keys : keys + "   only: " + search_, width);
}

}  // namespace memview
