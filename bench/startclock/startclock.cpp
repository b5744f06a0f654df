// startclock: starts a program and reports how long it takes, from just before the fork, until a
// window with the given title is viewable and, optionally, until a line with the given text is
// appended to a log file (the service host's request log, where a page's load shows as its
// first request). Prints one line, "pid=... shown_ms=... loaded_ms=... ready_ms=...", then
// stays until the program ends so that the caller can measure it and stop it by its pid.
//
// Usage: startclock --title TITLE [--log FILE --line TEXT] [--timeout SECONDS] -- command [args...]
// Exit status: 0 once the program has ended after a report, 1 on a time-out or an early exit,
// 2 on a usage error.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

double nowMs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

std::string windowTitle(Display* display, Window window)
{
    static const Atom netWmName = XInternAtom(display, "_NET_WM_NAME", False);
    static const Atom utf8 = XInternAtom(display, "UTF8_STRING", False);
    Atom type = None;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    std::string title;
    if (XGetWindowProperty(display, window, netWmName, 0, 1024, False, utf8, &type, &format, &items, &after, &data)
            == Success && data) {
        title.assign(reinterpret_cast<char*>(data), items);
        XFree(data);
        return title;
    }
    char* name = nullptr;
    if (XFetchName(display, window, &name) && name) {
        title = name;
        XFree(name);
    }
    return title;
}

// Top-level windows sit under the root, or one level lower inside a window manager's frame.
bool titledWindowViewable(Display* display, Window parent, const std::string& title, int depth)
{
    Window root = 0, up = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display, parent, &root, &up, &children, &count))
        return false;
    bool found = false;
    for (unsigned int i = 0; i < count && !found; ++i) {
        XWindowAttributes attributes;
        if (!XGetWindowAttributes(display, children[i], &attributes) || attributes.map_state != IsViewable)
            continue;
        found = windowTitle(display, children[i]) == title
            || (depth > 0 && titledWindowViewable(display, children[i], title, depth - 1));
    }
    if (children)
        XFree(children);
    return found;
}

// Reads what was appended to the log since the last call and looks for the text in it.
class LogFollower
{
public:
    LogFollower(const std::string& path, const std::string& text) : mPath(path), mText(text)
    {
        std::ifstream file(path, std::ios::binary | std::ios::ate);
        mOffset = file ? static_cast<long>(file.tellg()) : 0;
    }

    bool seen()
    {
        std::ifstream file(mPath, std::ios::binary);
        if (!file)
            return false;
        file.seekg(mOffset);
        std::string fresh((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        // Only whole lines count; keep a partial one for the next look.
        const size_t end = fresh.rfind('\n');
        if (end == std::string::npos)
            return false;
        mOffset += static_cast<long>(end + 1);
        return fresh.substr(0, end).find(mText) != std::string::npos;
    }

private:
    std::string mPath;
    std::string mText;
    long mOffset = 0;
};

// Windows come and go between a tree query and the look at each of them; such a window just isn't it.
int ignoreXError(Display*, XErrorEvent*)
{
    return 0;
}

int usage()
{
    std::fprintf(stderr, "usage: startclock --title TITLE [--log FILE --line TEXT] [--timeout SECONDS] -- command [args...]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string title, logPath, lineText;
    double timeoutMs = 60000;
    int first = 1;
    for (; first < argc; ++first) {
        const std::string option = argv[first];
        if (option == "--")
            break;
        if (first + 1 >= argc)
            return usage();
        if (option == "--title")
            title = argv[++first];
        else if (option == "--log")
            logPath = argv[++first];
        else if (option == "--line")
            lineText = argv[++first];
        else if (option == "--timeout")
            timeoutMs = std::atof(argv[++first]) * 1000;
        else
            return usage();
    }
    if (title.empty() || first + 1 >= argc || logPath.empty() != lineText.empty())
        return usage();

    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "startclock: no X display\n");
        return 1;
    }
    XSetErrorHandler(ignoreXError);
    std::vector<LogFollower> follower;
    if (!logPath.empty())
        follower.emplace_back(logPath, lineText);

    const double start = nowMs();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[first + 1], argv + first + 1);
        std::perror("startclock: exec");
        _exit(127);
    }
    if (child < 0) {
        std::perror("startclock: fork");
        return 1;
    }

    double shown = -1, loaded = follower.empty() ? 0 : -1;
    while (shown < 0 || loaded < 0) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            std::fprintf(stderr, "startclock: the program ended before it was ready\n");
            return 1;
        }
        if (nowMs() - start > timeoutMs) {
            std::fprintf(stderr, "startclock: not ready after %.0f s (shown %s, loaded %s)\n", timeoutMs / 1000,
                         shown < 0 ? "no" : "yes", loaded < 0 ? "no" : "yes");
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return 1;
        }
        if (shown < 0 && titledWindowViewable(display, DefaultRootWindow(display), title, 1))
            shown = nowMs() - start;
        if (loaded < 0 && follower.front().seen())
            loaded = nowMs() - start;
        usleep(2000);
    }
    XCloseDisplay(display);
    std::printf("pid=%d shown_ms=%.1f loaded_ms=%.1f ready_ms=%.1f\n", int(child), shown, loaded,
                shown > loaded ? shown : loaded);
    std::fflush(stdout);
    int status = 0;
    waitpid(child, &status, 0);
    return 0;
}
