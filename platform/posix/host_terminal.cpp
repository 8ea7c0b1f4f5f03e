// The terminal of a POSIX system.
#include "host/terminal.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

bool ErrorsGoToTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

static void WriteText(int terminal, const std::string& text)
{
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(terminal, text.data() + written, text.size() - written);
        if (count <= 0)
            return;
        written += static_cast<size_t>(count);
    }
}

// Reads a line. False: it was broken off by the interrupt char or an end of input.
static bool ReadLine(int terminal, char interrupt, std::string& lineOut)
{
    for (;;) {
        char c;
        const ssize_t count = read(terminal, &c, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0 || c == interrupt)
            return false;
        if (c == '\n' || c == '\r')
            return true;
        lineOut += c;
    }
}

static bool AskWithoutEcho(int terminal, const std::string& question, std::string& secretOut)
{
    termios shown;
    if (tcgetattr(terminal, &shown) != 0)
        return false;
    termios hidden = shown;
    // Signals are off too: none may end the program while the terminal hides what is typed. So the
    // interrupt char ends a line, to be read as what it is.
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    hidden.c_cc[VEOL] = shown.c_cc[VINTR];
    if (tcsetattr(terminal, TCSAFLUSH, &hidden) != 0)
        return false;
    WriteText(terminal, question);
    const bool isRead = ReadLine(terminal, static_cast<char>(shown.c_cc[VINTR]), secretOut);
    tcsetattr(terminal, TCSAFLUSH, &shown);
    WriteText(terminal, "\n");
    return isRead;
}

bool AskSecret(const std::string& question, std::string& secretOut)
{
    // The terminal itself: standard input may bring the text of the message.
    const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0)
        return false;
    const bool isRead = AskWithoutEcho(terminal, question, secretOut);
    close(terminal);
    return isRead;
}

void PauseMilliseconds(uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

uint64_t MillisecondsNow()
{
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count());
}
