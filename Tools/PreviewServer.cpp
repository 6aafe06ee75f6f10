#include "Tools/PreviewServer.h"

#include "Tools/LoopbackListener.h"
#include "Tools/PreviewFiles.h"

#include <microhttpd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace pavo::tools {
namespace {

// At each address. More wait until one of them is done.
constexpr unsigned kMostConnections = 32;
constexpr std::size_t kMemoryPerConnection = std::size_t{32} * 1024;
// The system queues as much of the picture for a viewer that reads slowly; it would rather see a newer one.
constexpr int kSendBuffer = 64 * 1024;

using HeaderText = std::pair<const char*, const char*>;
constexpr std::array<HeaderText, 6> kHeaders = {{
    {"Content-Security-Policy", "default-src 'none'; img-src 'self' data:; script-src 'self'; style-src "
                                "'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                                "frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
}};

struct ResponseCloser {
    void operator()(MHD_Response* response) const { ::MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseCloser>;

Response makeResponse(std::string_view content, const char* type, MHD_ResponseMemoryMode mode)
{
    // The library takes what it copies or only reads as something that it might change.
    Response response(
        ::MHD_create_response_from_buffer(content.size(), const_cast<char*>(content.data()), mode));
    if (response) ::MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, type);
    return response;
}

MHD_Result answer(MHD_Connection* connection, unsigned status, Response response)
{
    if (!response) return MHD_NO;
    for (const auto& [name, value] : kHeaders)
        ::MHD_add_response_header(response.get(), name, value);
    return ::MHD_queue_response(connection, status, response.get());
}

MHD_Result refuse(MHD_Connection* connection, unsigned status, std::string_view why,
                  const HeaderText& header = {})
{
    auto response = makeResponse(why, "text/plain; charset=utf-8", MHD_RESPMEM_MUST_COPY);
    if (response && header.first) ::MHD_add_response_header(response.get(), header.first, header.second);
    return answer(connection, status, std::move(response));
}

std::vector<std::string> headersNamed(MHD_Connection* connection, std::string_view name)
{
    struct Search {
        std::string_view name;
        std::vector<std::string> found;
    } search{name, {}};
    ::MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* data, MHD_ValueKind, const char* key, const char* value) {
            auto& wanted = *static_cast<Search*>(data);
            const std::string_view text(key);
            const bool isSame = std::ranges::equal(text, wanted.name, [](unsigned char a, unsigned char b) {
                return std::tolower(a) == std::tolower(b);
            });
            if (isSame) wanted.found.emplace_back(value ? value : "");
            return MHD_YES;
        },
        &search);
    return search.found;
}

// Browsers say whose page asks; a page of another site may link to ours, and nothing else.
bool isFromElsewhere(MHD_Connection* connection, std::string_view url)
{
    const auto sites = headersNamed(connection, "Sec-Fetch-Site");
    const auto isOurs = [](const std::string& site) { return site == "same-origin" || site == "none"; };
    if (std::ranges::all_of(sites, isOurs)) return false;
    const auto modes = headersNamed(connection, "Sec-Fetch-Mode");
    return url != "/" || modes.size() != 1 || modes[0] != "navigate";
}

// A viewer as the content of an answer.
struct Watching {
    PictureFeed& feed;
    PictureFeed::Viewer* viewer;
};

ssize_t readPicture(void* data, std::uint64_t, char* into, std::size_t size)
{
    auto& watching = *static_cast<Watching*>(data);
    const auto [status, bytes] = watching.feed.read(*watching.viewer, {into, size});
    if (status == PictureFeed::ReadStatus::over) return MHD_CONTENT_READER_END_OF_STREAM;
    return static_cast<ssize_t>(bytes);
}

void stopWatching(void* data)
{
    const std::unique_ptr<Watching> watching(static_cast<Watching*>(data));
    watching->feed.leave(watching->viewer);
}

}  // namespace

struct PreviewServer::Impl {
    Impl(PictureFeed& pictures, StatusSource wanted) : feed(pictures), status(std::move(wanted)) {}
    ~Impl();

    bool listen(UniqueFd socket, std::chrono::seconds patience);
    MHD_Result handle(MHD_Connection* connection, std::string_view url, std::string_view method) const;
    MHD_Result answerPicture(MHD_Connection* connection, bool isForHead) const;

    static MHD_Result onRequest(void* data, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* upload, std::size_t* uploadSize,
                                void** context);
    static void onConnection(void* data, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode code);

    PictureFeed& feed;
    const StatusSource status;
    std::uint16_t port = 0;
    std::vector<MHD_Daemon*> daemons;
};

PreviewServer::Impl::~Impl()
{
    // The library cannot stop while connections sleep.
    feed.end();
    for (MHD_Daemon* daemon : daemons)
        ::MHD_stop_daemon(daemon);
}

bool PreviewServer::Impl::listen(UniqueFd socket, std::chrono::seconds patience)
{
    MHD_Daemon* daemon = ::MHD_start_daemon(
        MHD_USE_AUTO_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, onRequest, this,
        MHD_OPTION_LISTEN_SOCKET, socket.get(), MHD_OPTION_CONNECTION_LIMIT, kMostConnections,
        MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(patience.count()),
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryPerConnection, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_NOTIFY_CONNECTION, onConnection, this, MHD_OPTION_END);
    if (!daemon) return false;
    // The library closes it at its end.
    (void)socket.release();
    daemons.push_back(daemon);
    return true;
}

void PreviewServer::Impl::onConnection(void*, MHD_Connection* connection, void**,
                                       MHD_ConnectionNotificationCode code)
{
    if (code != MHD_CONNECTION_NOTIFY_STARTED) return;
    const auto* info = ::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    ::setsockopt(info->connect_fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
}

MHD_Result PreviewServer::Impl::onRequest(void* data, MHD_Connection* connection, const char* url,
                                          const char* method, const char*, const char*, std::size_t*, void**)
{
    // Every request is answered at once: none has a body that matters.
    return static_cast<const Impl*>(data)->handle(connection, url, method);
}

MHD_Result PreviewServer::Impl::handle(MHD_Connection* connection, std::string_view url,
                                       std::string_view method) const
{
    const auto hosts = headersNamed(connection, "Host");
    if (hosts.size() != 1) return refuse(connection, MHD_HTTP_BAD_REQUEST, "One Host header, please.\n");
    if (!isLoopbackHost(hosts[0]))
        return refuse(connection, MHD_HTTP_FORBIDDEN, "Only for this computer: ask for localhost.\n");
    if (isFromElsewhere(connection, url))
        return refuse(connection, MHD_HTTP_FORBIDDEN, "Not for the pages of other sites.\n");
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD)
        return refuse(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "GET or HEAD, please.\n",
                      {MHD_HTTP_HEADER_ALLOW, "GET, HEAD"});
    if (url == "/picture.mjpeg") return answerPicture(connection, method == MHD_HTTP_METHOD_HEAD);
    if (url == "/status.json") {
        const std::string text =
            status().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
        return answer(connection, MHD_HTTP_OK, makeResponse(text, "application/json", MHD_RESPMEM_MUST_COPY));
    }
    for (const auto& file : kPreviewFiles)
        if (url == file.url)
            return answer(connection, MHD_HTTP_OK,
                          makeResponse(file.content, file.type, MHD_RESPMEM_PERSISTENT));
    return refuse(connection, MHD_HTTP_NOT_FOUND, "There is nothing here.\n");
}

MHD_Result PreviewServer::Impl::answerPicture(MHD_Connection* connection, bool isForHead) const
{
    // Who asks only what it would be does not watch.
    if (isForHead)
        return answer(connection, MHD_HTTP_OK,
                      makeResponse({}, PictureFeed::kContentType, MHD_RESPMEM_PERSISTENT));
    const auto* info = ::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    auto* viewer = feed.join({[connection] { ::MHD_suspend_connection(connection); },
                              [connection] { ::MHD_resume_connection(connection); }, info->connect_fd});
    if (!viewer)
        return refuse(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "Too many watch already.\n",
                      {MHD_HTTP_HEADER_RETRY_AFTER, "5"});
    auto watching = std::make_unique<Watching>(Watching{feed, viewer});
    Response response(::MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kMemoryPerConnection, readPicture,
                                                          watching.get(), stopWatching));
    if (!response) {
        stopWatching(watching.release());
        return MHD_NO;
    }
    (void)watching.release();  // the answer's now
    ::MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, PictureFeed::kContentType);
    return answer(connection, MHD_HTTP_OK, std::move(response));
}

PreviewServer::PreviewServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

PreviewServer::~PreviewServer() = default;

std::uint16_t PreviewServer::port() const
{
    return impl_->port;
}

Result<std::unique_ptr<PreviewServer>> PreviewServer::start(std::uint16_t port, PictureFeed& feed,
                                                            StatusSource status,
                                                            std::chrono::seconds patience)
{
    auto listener = LoopbackListener::open(port);
    if (!listener) return listener.problem();
    auto impl = std::make_unique<Impl>(feed, std::move(status));
    impl->port = listener.value().port;
    for (auto& socket : listener.value().sockets)
        if (!impl->listen(std::move(socket), patience)) return Problem{"the web server cannot be started"};
    return std::unique_ptr<PreviewServer>(new PreviewServer(std::move(impl)));
}

bool isLoopbackHost(std::string_view host)
{
    const auto colon = host.find(':', host.starts_with('[') ? std::min(host.find(']'), host.size()) : 0);
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    if (colon != std::string_view::npos && !std::ranges::all_of(host.substr(colon + 1), isDigit))
        return false;
    std::string name(host.substr(0, colon));
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name == "localhost" || name == "127.0.0.1" || name == "[::1]";
}

}  // namespace pavo::tools
