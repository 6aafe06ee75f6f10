#include "Platform/CoreMediaIO/linux/ClientTracker.h"

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cmio {

namespace {

constexpr const char* kPortalApplicationKey = "pipewire.access.portal.app_id";
constexpr std::string_view kPortalAccess = "portal";

std::string_view textOf(const spa_dict* properties, const char* key)
{
    const char* value = properties ? spa_dict_lookup(properties, key) : nullptr;
    return value ? value : "";
}

template <typename Number>
std::optional<Number> numberOf(const spa_dict* properties, const char* key)
{
    const std::string_view text = textOf(properties, key);
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || text.empty() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace

// A client that we ask about itself: the registry tells only part of it.
struct ClientTracker::BoundClient {
    BoundClient(ClientTracker& owner, std::uint32_t id, std::int32_t connectedProcess)
        : tracker(owner),
          kernelProcess(connectedProcess)
    {
        static const pw_client_events events = [] {
            pw_client_events table{};
            table.version = PW_VERSION_CLIENT_EVENTS;
            table.info = [](void* data, const pw_client_info* info) {
                static_cast<BoundClient*>(data)->infoChanged(*info);
            };
            return table;
        }();
        void* bound = pw_registry_bind(owner.registry_, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0);
        proxy = static_cast<pw_proxy*>(bound);
        if (proxy) pw_proxy_add_object_listener(proxy, &hook, &events, this);
    }
    BoundClient(const BoundClient&) = delete;
    BoundClient& operator=(const BoundClient&) = delete;
    ~BoundClient()
    {
        if (!proxy) return;
        spa_hook_remove(&hook);
        pw_proxy_destroy(proxy);
    }

    void infoChanged(const pw_client_info& info)
    {
        if (!info.props) return;
        const bool isPortalClient = textOf(info.props, PW_KEY_ACCESS) == kPortalAccess ||
                                    spa_dict_lookup(info.props, kPortalApplicationKey) != nullptr;
        const auto claimed = numberOf<std::int32_t>(info.props, PW_KEY_APP_PROCESS_ID);
        if (const auto kernel = numberOf<std::int32_t>(info.props, PW_KEY_SEC_PID)) kernelProcess = *kernel;
        process = isPortalClient && claimed ? *claimed : kernelProcess;
        portalApplication = textOf(info.props, kPortalApplicationKey);
        isProcessKnown = process == kernelProcess;
        program = textOf(info.props, PW_KEY_APP_PROCESS_BINARY);
        if (program.empty()) program = textOf(info.props, PW_KEY_APP_NAME);
        tracker.onChange_();
    }

    ClientTracker& tracker;
    pw_proxy* proxy = nullptr;
    spa_hook hook{};
    std::int32_t kernelProcess;
    std::int32_t process = 0;     // 0 until the client's info has come
    bool isProcessKnown = false;  // to the kernel
    std::string program;          // by its own word
    std::string portalApplication;
};

// The registry's callbacks, and the hook that they hang on.
struct RegistryEvents {
    static const pw_registry_events& table()
    {
        static const pw_registry_events events = [] {
            pw_registry_events table{};
            table.version = PW_VERSION_REGISTRY_EVENTS;
            table.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                              const spa_dict* properties) {
                add(*static_cast<ClientTracker*>(data), id, type, properties);
            };
            table.global_remove = [](void* data, std::uint32_t id) {
                remove(*static_cast<ClientTracker*>(data), id);
            };
            return table;
        }();
        return events;
    }

    static void add(ClientTracker& tracker, std::uint32_t id, std::string_view type,
                    const spa_dict* properties)
    {
        if (type == PW_TYPE_INTERFACE_Client) {
            const auto process = numberOf<std::int32_t>(properties, PW_KEY_SEC_PID).value_or(0);
            tracker.clients_.insert_or_assign(
                id, std::make_unique<ClientTracker::BoundClient>(tracker, id, process));
        } else if (type == PW_TYPE_INTERFACE_Node) {
            if (const auto client = numberOf<std::uint32_t>(properties, PW_KEY_CLIENT_ID))
                tracker.clientOfNode_.insert_or_assign(id, *client);
        } else if (type == PW_TYPE_INTERFACE_Link) {
            const auto output = numberOf<std::uint32_t>(properties, PW_KEY_LINK_OUTPUT_NODE);
            const auto input = numberOf<std::uint32_t>(properties, PW_KEY_LINK_INPUT_NODE);
            if (!output || !input) return;
            tracker.links_.insert_or_assign(
                id, ClientTracker::Link{*output, *input, std::chrono::steady_clock::now()});
            tracker.onChange_();
        }
    }

    static void remove(ClientTracker& tracker, std::uint32_t id)
    {
        const auto erased =
            tracker.links_.erase(id) + tracker.clientOfNode_.erase(id) + tracker.clients_.erase(id);
        if (erased != 0) tracker.onChange_();
    }

    spa_hook hook{};
};

ClientTracker::ClientTracker(pw_core* core, std::function<void()> onChange)
    : onChange_(std::move(onChange)),
      registry_(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0)),
      events_(std::make_unique<RegistryEvents>())
{
    if (registry_) pw_registry_add_listener(registry_, &events_->hook, &RegistryEvents::table(), this);
}

ClientTracker::~ClientTracker()
{
    clients_.clear();
    if (!registry_) return;
    spa_hook_remove(&events_->hook);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
}

const ClientTracker::BoundClient* ClientTracker::clientOf(const Link& link) const
{
    const auto node = clientOfNode_.find(link.inputNode);
    if (node == clientOfNode_.end()) return nullptr;
    const auto client = clients_.find(node->second);
    return client == clients_.end() ? nullptr : client->second.get();
}

std::int32_t ClientTracker::processOf(const Link& link) const
{
    const BoundClient* client = clientOf(link);
    return client ? client->process : 0;
}

std::set<std::int32_t> ClientTracker::processesOf(std::uint32_t nodeId) const
{
    std::set<std::int32_t> processes;
    for (const auto& [id, link] : links_) {
        if (link.outputNode != nodeId) continue;
        if (const std::int32_t process = processOf(link); process > 0) processes.insert(process);
    }
    return processes;
}

std::vector<ClientReport> ClientTracker::clientsOf(std::uint32_t nodeId) const
{
    std::map<std::int32_t, ClientReport> reports;
    for (const auto& [id, link] : links_) {
        const BoundClient* client = link.outputNode == nodeId ? clientOf(link) : nullptr;
        if (!client || client->process <= 0) continue;
        const auto [report, isNew] = reports.try_emplace(client->process);
        if (!isNew && report->second.since <= link.since) continue;
        report->second = {client->process, client->program, client->portalApplication, link.since,
                          client->isProcessKnown};
    }
    std::vector<ClientReport> list;
    for (auto& [process, report] : reports)
        list.push_back(std::move(report));
    return list;
}

void ClientTracker::unlink(std::uint32_t nodeId, std::int32_t process)
{
    for (const auto& [id, link] : links_)
        if (link.outputNode == nodeId && processOf(link) == process) pw_registry_destroy(registry_, id);
}

}  // namespace cmio
