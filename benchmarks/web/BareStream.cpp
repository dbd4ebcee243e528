// The least that an event stream can cost: sends what was recorded of one, at its times, to each
// who connects:
//   bareStream RECORDING
// Prints the port. A recording is a row of pieces: nanoseconds since the first and length, 8
// bytes each, and the bytes. A thread for each listener. Whoever measures ends it.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

struct Piece {
    std::chrono::nanoseconds time;
    std::string bytes;
};

std::vector<Piece> readRecording(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<Piece> pieces;
    std::array<std::uint64_t, 2> head{};
    while (file.read(reinterpret_cast<char*>(head.data()), sizeof head)) {
        std::string bytes(static_cast<std::size_t>(head[1]), '\0');
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        pieces.push_back({std::chrono::nanoseconds(head[0]), std::move(bytes)});
    }
    return pieces;
}

bool sendAll(int connection, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void serve(int connection, const std::vector<Piece>& pieces)
{
    std::array<char, 4096> request{};
    if (recv(connection, request.data(), request.size(), 0) > 0 &&
        sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n")) {
        const auto start = Clock::now();
        for (const Piece& piece : pieces) {
            std::this_thread::sleep_until(start + piece.time);
            if (!sendAll(connection, piece.bytes))
                break;
        }
    }
    close(connection);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: bareStream RECORDING\n", stderr);
        return 2;
    }
    const std::vector<Piece> pieces = readRecording(argv[1]);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("bareStream");
        return 1;
    }
    std::printf("%u\n", unsigned{ntohs(address.sin_port)});
    std::fflush(stdout);
    for (;;) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection >= 0)
            std::thread(serve, connection, std::cref(pieces)).detach();
    }
}
