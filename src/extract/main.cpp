// Reads documents for the program's index in a process of its own: what a hostile document does to
// a reader ends here. With file names it prints their texts; with --serve it answers requests on
// the socket that is its standard input.
#include "search/text/documenttext.h"
#include "search/text/extractprotocol.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTextCodec>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace search::text;

constexpr rlim_t maxMemoryBytes = rlim_t(1024) * 1024 * 1024;
constexpr int printedChars = 16 * 1024 * 1024;

void limitSelf()
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    // Sanitizers reserve terabytes of addresses.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const rlimit memory{maxMemoryBytes, maxMemoryBytes};
    ::setrlimit(RLIMIT_AS, &memory);
#endif
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

/// False at the end of the input.
bool readAll(void *to, std::size_t bytes)
{
    auto *at = static_cast<char *>(to);
    while (bytes > 0) {
        const ssize_t got = ::read(STDIN_FILENO, at, bytes);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        at += got;
        bytes -= std::size_t(got);
    }
    return true;
}

bool writeAll(const void *from, std::size_t bytes)
{
    const auto *at = static_cast<const char *>(from);
    while (bytes > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, at, bytes);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        at += written;
        bytes -= std::size_t(written);
    }
    return true;
}

bool waitForRequest()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int ready = 0;
    do
        ready = ::poll(&input, 1, idleSeconds * 1000);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/// One request; false when there is none.
bool answer()
{
    ExtractRequest request{};
    if (!waitForRequest() || !readAll(&request, sizeof(request)) ||
        request.pathBytes > maxPathBytes)
        return false;
    QByteArray path(int(request.pathBytes), Qt::Uninitialized);
    if (!readAll(path.data(), request.pathBytes))
        return false;
    ::alarm(documentSeconds);
    const DocumentText document =
        readDocument(QFile::decodeName(path), int(request.maxPlainBytes), int(request.maxChars));
    const QByteArray text = document.text.toUtf8();
    const ExtractReply reply{std::uint32_t(text.size()), document.isCut ? 1U : 0U};
    const bool ok =
        writeAll(&reply, sizeof(reply)) && writeAll(text.constData(), std::size_t(text.size()));
    ::alarm(0);
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: morvane-extract FILE...\n       morvane-extract --serve\n");
        return 2;
    }
    limitSelf();
    // Names go as the bytes that the file system knows.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    if (std::strcmp(argv[1], "--serve") == 0) {
        const rlimit noFiles{0, 0};
        ::setrlimit(RLIMIT_FSIZE, &noFiles);
        while (answer()) {
        }
        return 0;
    }
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        const QByteArray text = readDocument(path, printedChars, printedChars).text.toUtf8();
        if (!writeAll(text.constData(), std::size_t(text.size())) || !writeAll("\n", 1))
            return 1;
    }
    return 0;
}
