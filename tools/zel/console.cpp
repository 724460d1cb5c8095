// A thread redraws the line ten times a second, so that time goes on while a library computes. Standard output and error are
// held in a temporary file meanwhile, as far as they are the terminal; the thread copies what arrives there. Lines are
// erased with blanks: no terminal is too simple for that.
#include "console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace zel_command
{

constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr int kBar = 30;   // characters
constexpr int kMark = 4;   // of them, that move while the share is unknown
constexpr int kPhase = 30; // characters before the bar at least, so that the bars stand in one column

static bool is_terminal(int file)
{
    return isatty(file) == 1;
}

constexpr const char *kGreen = "\033[32m", *kRed = "\033[31m", *kPlain = "\033[0m";

static bool has_colours(FILE* stream)
{
    const char* refusal = std::getenv("NO_COLOR");
    return is_terminal(fileno(stream)) && !(refusal && *refusal);
}

std::string verdict(bool holds)
{
    const std::string text = holds ? "Okay" : "CHECK!";
    return has_colours(stdout) ? (holds ? kGreen : kRed) + text + kPlain : text;
}

void print_problem(std::string_view what)
{
    const bool red = has_colours(stderr);
    std::fprintf(stderr, "%szel:%s %.*s\n", red ? kRed : "", red ? kPlain : "", int(what.size()), what.data());
}

static std::atomic<bool> told_error, told_shortage;

bool error_was_told()
{
    return told_error;
}

bool memory_was_short()
{
    return told_shortage;
}

// As the library prints a message by itself: line by line, each behind the prefix of its severity.
static void print_message(void* context, int severity, const char* text)
{
    told_error = told_error || severity == ZEL_MESSAGE_ERROR;
    told_shortage = told_shortage || (severity == ZEL_MESSAGE_ERROR && std::strstr(text, "memory"));
    const Messages shown = *static_cast<const Messages*>(context);
    if (shown == Messages::none || (shown == Messages::problems && severity == ZEL_MESSAGE_INFO))
        return;
    const char* const prefix = severity == ZEL_MESSAGE_ERROR     ? "ERROR:  "
                               : severity == ZEL_MESSAGE_WARNING ? "WARNING:  "
                                                                 : "";
    for (const char* end = std::strchr(text, '\n'); end; text = end + 1, end = std::strchr(text, '\n'))
        std::fprintf(stderr, "%s%.*s\n", prefix, int(end - text), text);
    std::fprintf(stderr, "%s%s\n", prefix, text);
}

MessageScope::MessageScope(Messages shown) : shown_(shown), handler_before_(ZEL_MessageHandler(&context_before_))
{
    ZEL_SetMessageHandler(print_message, &shown_);
}

class ProgressBar::Line
{
public:
    explicit Line(const std::string& phase);
    ~Line() { finish(); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void begin(const std::string& phase)
    {
        const std::lock_guard lock(mutex_);
        phase_ = phase;
        share_ = -1.0;
        draw();
    }
    void advance(double share)
    {
        const std::lock_guard lock(mutex_);
        share_ = std::clamp(share, 0.0, 1.0);
    }
    void finish();

    static inline Line* current = nullptr;

private:
    void hold();
    void release();
    void run();
    std::string text() const;
    void draw();
    void erase() { put(std::string("\r").append(std::exchange(drawn_, 0), ' ').append("\r")); }
    void copy_held(bool all);
    void put(const std::string& text) const
    {
        [[maybe_unused]] const auto written = write(terminal_, text.data(), text.size());
    }

    // What long operations of the library tell.
    static int take(void* line, double done, double total)
    {
        static_cast<Line*>(line)->advance(total > 0.0 ? done / total : 0.0);
        return 0;
    }

    void* context_before_ = nullptr;
    ZELPROGRESSHANDLER handler_before_ = ZEL_ProgressHandler(&context_before_);
    int terminal_ = dup(STDERR_FILENO);
    std::unique_ptr<FILE, int (*)(FILE*)> held_{std::tmpfile(), std::fclose};
    std::vector<std::pair<int, int>> saved_; // streams that are held, and where they went before
    off_t copied_ = 0;
    std::string phase_;
    double share_ = -1.0; // below 0: unknown
    size_t drawn_ = 0;    // characters of the line
    int tick_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool ended_ = false;
    std::mutex mutex_; // of all of the above
    std::condition_variable wake_;
    std::thread thread_;
};

ProgressBar::Line::Line(const std::string& phase)
{
    hold();
    begin(phase);
    thread_ = std::thread([this] { run(); });
    current = this;
    ZEL_SetProgressHandler(take, this);
}

void ProgressBar::Line::finish()
{
    if (!std::exchange(current, nullptr))
        return;
    ZEL_SetProgressHandler(handler_before_, context_before_);
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    wake_.notify_one();
    thread_.join();
    erase();
    release();
    copy_held(true);
    close(terminal_);
}

void ProgressBar::Line::hold()
{
    std::fflush(stdout);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        if (held_ && is_terminal(stream))
        {
            saved_.emplace_back(stream, dup(stream));
            dup2(fileno(held_.get()), stream);
        }
}

void ProgressBar::Line::release()
{
    std::fflush(stdout);
    for (const auto& [stream, before] : saved_)
    {
        dup2(before, stream);
        close(before);
    }
}

void ProgressBar::Line::run()
{
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, kRedraw, [this] { return ended_; }))
    {
        ++tick_;
        copy_held(false);
        draw();
    }
}

// What was printed since the last time, up to the last whole line or all of it.
void ProgressBar::Line::copy_held(bool all)
{
    std::array<char, 4096> part;
    std::string text;
    while (held_)
    {
        const ssize_t got = pread(fileno(held_.get()), part.data(), part.size(), copied_ + off_t(text.size()));
        if (got <= 0)
            break;
        text.append(part.data(), size_t(got));
    }
    if (!all)
        text.resize(text.rfind('\n') + 1); // none: npos + 1 is 0
    if (text.empty())
        return;
    erase();
    put(text);
    copied_ += off_t(text.size());
}

// "  phase     [#####-----]  50 %  12 s"
std::string ProgressBar::Line::text() const
{
    std::string bar(kBar, '-'), share = "     ";
    if (share_ >= 0.0)
    {
        share = std::to_string(int(share_ * 100)).append(" %");
        share.insert(0, std::string("100 %").size() - share.size(), ' ');
        std::fill_n(bar.begin(), int(share_ * kBar), '#');
    }
    else
    {
        constexpr int kWay = kBar - kMark;
        const int at = tick_ % (2 * kWay);
        std::fill_n(bar.begin() + std::min(at, 2 * kWay - at), kMark, '#');
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_);
    std::string line(2, ' ');
    line.append(phase_).resize(std::max(line.size(), size_t(kPhase)), ' ');
    return line.append(" [").append(bar).append("] ").append(share).append("  ").append(
        std::to_string(seconds.count()).append(" s"));
}

void ProgressBar::Line::draw()
{
    std::string line = text();
    winsize window{};
    if (ioctl(terminal_, TIOCGWINSZ, &window) == 0 && window.ws_col > 1)
        line.resize(std::min(line.size(), size_t(window.ws_col) - 1)); // a line that wraps could not be erased
    const size_t length = line.size();
    line.resize(std::max(length, drawn_), ' ');
    put("\r");
    put(line);
    drawn_ = length;
}

ProgressBar::ProgressBar(const std::string& phase)
{
    if (is_terminal(STDERR_FILENO) && !Line::current)
        line_ = std::make_unique<Line>(phase);
}

ProgressBar::~ProgressBar() = default;

void ProgressBar::begin(const std::string& phase)
{
    if (line_)
        line_->begin(phase);
}

void ProgressBar::advance(double share)
{
    if (line_)
        line_->advance(share);
}

void ProgressBar::end_current()
{
    if (Line::current)
        Line::current->finish();
}

} // namespace zel_command
