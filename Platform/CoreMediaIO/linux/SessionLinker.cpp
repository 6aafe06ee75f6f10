#include "Platform/CoreMediaIO/linux/SessionLinker.h"

#include "Platform/CoreMediaIO/linux/Log.h"
#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace cmio {

namespace {

constexpr const char* kPortalApplicationKey = "pipewire.access.portal.app_id";
// Clients of before 0.3.64 say this.
constexpr const char* kOldTargetKey = "node.target";

std::string_view textOf(const pw_properties* properties, const char* key)
{
    const char* value = properties ? pw_properties_get(properties, key) : nullptr;
    return value ? value : "";
}

bool isCamera(pw_impl_node* node)
{
    return textOf(pw_impl_node_get_properties(node), PW_KEY_MEDIA_CLASS) == "Video/Source";
}

bool asksForCamera(pw_impl_node* node)
{
    const pw_properties* properties = pw_impl_node_get_properties(node);
    return textOf(properties, PW_KEY_MEDIA_CLASS) == "Stream/Input/Video" &&
           textOf(properties, PW_KEY_NODE_AUTOCONNECT) == "true";
}

// What the client calls the camera that it wants; empty when any will do.
std::string_view wantedTarget(pw_impl_node* node)
{
    for (const char* key : {PW_KEY_TARGET_OBJECT, kOldTargetKey}) {
        const std::string_view target = textOf(pw_impl_node_get_properties(node), key);
        if (!target.empty() && target != "-1") return target;
    }
    return {};
}

bool isCalled(pw_impl_node* camera, std::string_view target)
{
    const pw_properties* properties = pw_impl_node_get_properties(camera);
    return target == textOf(properties, PW_KEY_NODE_NAME) ||
           target == textOf(properties, PW_KEY_OBJECT_SERIAL) ||
           target == textOf(properties, PW_KEY_OBJECT_ID);
}

}  // namespace

// A client of the server and the hook on it: it says later whether it comes through a portal.
struct SessionLinker::WatchedClient {
    SessionLinker* linker;
    pw_impl_client* client;
    spa_hook hook{};
};

// The server's callbacks, and the hook that they hang on.
struct SessionLinkerEvents {
    static const pw_context_events& contextTable()
    {
        static const pw_context_events events = [] {
            pw_context_events table{};
            table.version = PW_VERSION_CONTEXT_EVENTS;
            table.global_added = [](void* data, pw_global* global) {
                static_cast<SessionLinker*>(data)->added(global);
            };
            table.global_removed = [](void* data, pw_global* global) {
                static_cast<SessionLinker*>(data)->removed(global);
            };
            return table;
        }();
        return events;
    }

    static const pw_impl_client_events& clientTable()
    {
        static const pw_impl_client_events events = [] {
            pw_impl_client_events table{};
            table.version = PW_VERSION_IMPL_CLIENT_EVENTS;
            table.info_changed = [](void* data, const pw_client_info* info) {
                const auto* watched = static_cast<SessionLinker::WatchedClient*>(data);
                if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) != 0)
                    watched->linker->serve_.schedule();
            };
            table.free = [](void* data) {
                auto* watched = static_cast<SessionLinker::WatchedClient*>(data);
                spa_hook_remove(&watched->hook);
                watched->linker->clients_.remove_if([watched](const auto& each) { return &each == watched; });
            };
            return table;
        }();
        return events;
    }

    spa_hook hook{};
};

SessionLinker::SessionLinker(PipeWireLoop& loop, pw_context* context)
    : context_(context),
      serve_(loop, [this] { serve(); }),
      events_(std::make_unique<SessionLinkerEvents>())
{
    pw_context_add_listener(context_, &events_->hook, &SessionLinkerEvents::contextTable(), this);
}

SessionLinker::~SessionLinker()
{
    spa_hook_remove(&events_->hook);
    for (WatchedClient& watched : clients_)
        spa_hook_remove(&watched.hook);
}

void SessionLinker::added(pw_global* global)
{
    void* object = pw_global_get_object(global);
    if (pw_global_is_type(global, PW_TYPE_INTERFACE_Client)) {
        WatchedClient& watched = clients_.emplace_back(this, static_cast<pw_impl_client*>(object));
        pw_impl_client_add_listener(watched.client, &watched.hook, &SessionLinkerEvents::clientTable(),
                                    &watched);
    } else if (pw_global_is_type(global, PW_TYPE_INTERFACE_Port)) {
        auto* port = static_cast<pw_impl_port*>(object);
        if (pw_impl_port_get_direction(port) == PW_DIRECTION_INPUT)
            inputs_.push_back(port);
        else if (isCamera(pw_impl_port_get_node(port)))
            outputs_.push_back(port);
    } else {
        return;
    }
    // Not in here: what came is not complete yet.
    serve_.schedule();
}

void SessionLinker::removed(pw_global* global)
{
    if (!pw_global_is_type(global, PW_TYPE_INTERFACE_Port)) return;
    const auto* port = static_cast<pw_impl_port*>(pw_global_get_object(global));
    std::erase(inputs_, port);
    std::erase(outputs_, port);
}

void SessionLinker::serve()
{
    for (const WatchedClient& watched : clients_)
        admit(watched.client);
    // Without a camera the clients wait for one.
    if (outputs_.empty()) return;
    for (pw_impl_port* input : std::exchange(inputs_, {})) {
        pw_impl_port* output = outputFor(pw_impl_port_get_node(input));
        if (!output) continue;
        pw_impl_link* link = pw_context_create_link(context_, output, input, nullptr, nullptr, 0);
        if (!link || pw_impl_link_register(link, nullptr) < 0)
            os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "Cannot link a client to the camera: %m");
    }
}

pw_impl_port* SessionLinker::outputFor(pw_impl_node* client) const
{
    if (!asksForCamera(client)) return nullptr;
    const std::string_view target = wantedTarget(client);
    if (target.empty()) return outputs_.front();
    const auto found = std::find_if(outputs_.begin(), outputs_.end(), [target](pw_impl_port* output) {
        return isCalled(pw_impl_port_get_node(output), target);
    });
    return found == outputs_.end() ? nullptr : *found;
}

void SessionLinker::admit(pw_impl_client* client) const
{
    // Other clients may see everything from the start.
    if (!pw_properties_get(pw_impl_client_get_properties(client), kPortalApplicationKey)) return;
    std::vector<pw_permission> permissions = {
        PW_PERMISSION_INIT(pw_global_get_id(pw_impl_client_get_global(client)), PW_PERM_ALL)};
    for (pw_impl_port* output : outputs_) {
        const pw_node_info* camera = pw_impl_node_get_info(pw_impl_port_get_node(output));
        permissions.push_back(PW_PERMISSION_INIT(camera->id, PW_PERM_ALL));
    }
    pw_impl_client_update_permissions(client, static_cast<std::uint32_t>(permissions.size()),
                                      permissions.data());
}

}  // namespace cmio
