#pragma once

#include "Platform/Support/UniqueFd.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace pavo::test {

// One connection to a web server on this computer, which sends and takes bytes as they are.
class HttpConnection {
public:
    explicit HttpConnection(std::uint16_t port, int receiveBufferBytes = 0);

    // False where the other side has closed the connection.
    bool send(std::string_view bytes);
    // Reads until `isEnough` of all that has come since the last call, the end, or a deadline.
    template <typename Condition>
    std::string readUntil(Condition isEnough)
    {
        std::string text;
        while (!isEnough(text) && readSome(text)) {
        }
        return text;
    }
    std::string readAll()
    {
        return readUntil([](const std::string&) { return false; });
    }
    // The other side closed it, and what it had sent was read.
    bool isClosed() const { return isClosed_; }
    int descriptor() const { return socket_.get(); }
    void close() { socket_.reset(); }

private:
    bool readSome(std::string& text);

    UniqueFd socket_;
    bool isClosed_ = false;
};

struct HttpAnswer {
    int status = 0;  // 0: none came
    std::string head;
    std::string body;

    // Of a header that is there once; its name as the server writes it.
    std::string header(const std::string& name) const;
};

HttpAnswer parseAnswer(const std::string& text);
// Asks on a connection of its own. `headers` are whole lines; the host is localhost unless they have another.
HttpAnswer ask(std::uint16_t port, const std::string& method, const std::string& path,
               const std::string& headers = {}, const std::string& body = {});

}  // namespace pavo::test
