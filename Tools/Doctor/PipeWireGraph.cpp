#include "Tools/Doctor/PipeWireGraph.h"

#include "Tools/Doctor/LocalSocket.h"

#include <pipewire/pipewire.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>

namespace pavo::tools {
namespace {

void add(PipeWireGraph::Object& object, const spa_dict* properties)
{
    if (!properties) return;
    const spa_dict_item* item = nullptr;
    spa_dict_for_each(item, properties) object.properties[item->key] = item->value ? item->value : "";
}

// An object that is asked for what its announcement leaves out.
struct Bound {
    PipeWireGraph::Object object;
    pw_proxy* proxy = nullptr;
    spa_hook hook{};
};

// One conversation with a server, from the connection to the end of the answers.
class Reading final {
public:
    Reading() = default;
    ~Reading();
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    PipeWireAnswer read(UniqueFd connection, std::chrono::milliseconds limit);

private:
    bool startTimer(std::chrono::milliseconds limit);
    void bind(Bound& bound);
    void take(std::uint32_t id, const char* type, const spa_dict* properties);
    void answered(std::uint32_t id, int sequence);
    void end(PipeWireAnswer::Kind kind);
    static const pw_core_events& coreEvents();
    static const pw_registry_events& registryEvents();

    pw_main_loop* loop_ = nullptr;
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
    pw_registry* registry_ = nullptr;
    spa_source* timer_ = nullptr;
    spa_hook coreHook_{};
    spa_hook registryHook_{};
    std::list<Bound> bound_;  // whose addresses PipeWire keeps
    int awaited_ = 0;
    bool areAllBound_ = false;
    std::string problem_ = "it does not answer";
    PipeWireAnswer answer_;
};

Reading::~Reading()
{
    for (Bound& bound : bound_) {
        if (!bound.proxy) continue;
        spa_hook_remove(&bound.hook);
        pw_proxy_destroy(bound.proxy);
    }
    if (registry_) {
        spa_hook_remove(&registryHook_);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    }
    if (core_) {
        spa_hook_remove(&coreHook_);
        pw_core_disconnect(core_);
    }
    if (timer_) pw_loop_destroy_source(pw_main_loop_get_loop(loop_), timer_);
    if (context_) pw_context_destroy(context_);
    if (loop_) pw_main_loop_destroy(loop_);
}

const pw_core_events& Reading::coreEvents()
{
    static const pw_core_events events = [] {
        pw_core_events all{};
        all.version = PW_VERSION_CORE_EVENTS;
        all.info = [](void* data, const pw_core_info* info) {
            static_cast<Reading*>(data)->answer_.graph.version = info->version ? info->version : "";
        };
        all.done = [](void* data, std::uint32_t id, int sequence) {
            static_cast<Reading*>(data)->answered(id, sequence);
        };
        all.error = [](void* data, std::uint32_t id, int, int result, const char* message) {
            // Others concern objects that went while we asked.
            if (id != PW_ID_CORE || result != -EPIPE) return;
            static_cast<Reading*>(data)->problem_ = message;
            static_cast<Reading*>(data)->end(PipeWireAnswer::Kind::silent);
        };
        return all;
    }();
    return events;
}

const pw_registry_events& Reading::registryEvents()
{
    static const pw_registry_events events = [] {
        pw_registry_events all{};
        all.version = PW_VERSION_REGISTRY_EVENTS;
        all.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                        const spa_dict* properties) {
            static_cast<Reading*>(data)->take(id, type, properties);
        };
        return all;
    }();
    return events;
}

void Reading::take(std::uint32_t id, const char* type, const spa_dict* properties)
{
    if (areAllBound_) return;
    Bound& bound = bound_.emplace_back();
    bound.object.id = id;
    bound.object.type = type;
    bound.object.type.erase(0, bound.object.type.rfind(':') + 1);
    add(bound.object, properties);
}

void Reading::bind(Bound& bound)
{
    static const pw_node_events nodeEvents = [] {
        pw_node_events all{};
        all.version = PW_VERSION_NODE_EVENTS;
        all.info = [](void* data, const pw_node_info* info) {
            auto& object = static_cast<Bound*>(data)->object;
            add(object, info->props);
            object.state = pw_node_state_as_string(info->state);
        };
        return all;
    }();
    static const pw_client_events clientEvents = [] {
        pw_client_events all{};
        all.version = PW_VERSION_CLIENT_EVENTS;
        all.info = [](void* data, const pw_client_info* info) {
            add(static_cast<Bound*>(data)->object, info->props);
        };
        return all;
    }();
    const bool isNode = bound.object.type == "Node";
    if (!isNode && bound.object.type != "Client") return;
    bound.proxy = static_cast<pw_proxy*>(pw_registry_bind(
        registry_, bound.object.id, isNode ? PW_TYPE_INTERFACE_Node : PW_TYPE_INTERFACE_Client,
        isNode ? PW_VERSION_NODE : PW_VERSION_CLIENT, 0));
    if (!bound.proxy) return;
    pw_proxy_add_object_listener(bound.proxy, &bound.hook,
                                 isNode ? static_cast<const void*>(&nodeEvents) : &clientEvents, &bound);
}

void Reading::answered(std::uint32_t id, int sequence)
{
    if (id != PW_ID_CORE || sequence != awaited_) return;
    if (areAllBound_) return end(PipeWireAnswer::Kind::answered);
    areAllBound_ = true;
    for (Bound& bound : bound_)
        bind(bound);
    awaited_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void Reading::end(PipeWireAnswer::Kind kind)
{
    answer_.kind = kind;
    pw_main_loop_quit(loop_);
}

bool Reading::startTimer(std::chrono::milliseconds limit)
{
    pw_loop* loop = pw_main_loop_get_loop(loop_);
    timer_ = pw_loop_add_timer(
        loop,
        [](void* data, std::uint64_t) { static_cast<Reading*>(data)->end(PipeWireAnswer::Kind::silent); },
        this);
    timespec when{};
    when.tv_sec = limit.count() / 1000;
    when.tv_nsec = limit.count() % 1000 * 1'000'000;
    return timer_ && pw_loop_update_timer(loop, timer_, &when, nullptr, false) >= 0;
}

PipeWireAnswer Reading::read(UniqueFd connection, std::chrono::milliseconds limit)
{
    loop_ = pw_main_loop_new(nullptr);
    if (loop_) context_ = pw_context_new(pw_main_loop_get_loop(loop_), nullptr, 0);
    if (!context_ || !startTimer(limit)) {
        answer_.kind = PipeWireAnswer::Kind::silent;
        answer_.problem = std::string("PipeWire's library cannot be used: ") + std::strerror(errno);
        return std::move(answer_);
    }
    core_ = pw_context_connect_fd(context_, connection.release(), nullptr, 0);
    if (!core_) {
        answer_.problem = std::strerror(errno);
        return std::move(answer_);
    }
    pw_core_add_listener(core_, &coreHook_, &coreEvents(), this);
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry_, &registryHook_, &registryEvents(), this);
    awaited_ = pw_core_sync(core_, PW_ID_CORE, 0);
    pw_main_loop_run(loop_);
    if (!answer_.isThere()) answer_.problem = problem_;
    for (Bound& bound : bound_)
        answer_.graph.objects.push_back(std::move(bound.object));
    return std::move(answer_);
}

}  // namespace

std::string PipeWireGraph::Object::property(const std::string& name) const
{
    const auto found = properties.find(name);
    return found == properties.end() ? std::string() : found->second;
}

std::vector<PipeWireGraph::Object> PipeWireGraph::cameras(const std::string& name) const
{
    std::vector<Object> found;
    std::copy_if(objects.begin(), objects.end(), std::back_inserter(found), [&name](const Object& object) {
        return object.type == "Node" && object.property(PW_KEY_NODE_NAME) == name &&
               object.property(PW_KEY_MEDIA_CLASS) == "Video/Source";
    });
    return found;
}

bool PipeWireGraph::isLinked(std::uint32_t node) const
{
    const std::string id = std::to_string(node);
    return std::any_of(objects.begin(), objects.end(), [&id](const Object& object) {
        return object.type == "Link" && (object.property(PW_KEY_LINK_OUTPUT_NODE) == id ||
                                         object.property(PW_KEY_LINK_INPUT_NODE) == id);
    });
}

PipeWireAnswer readPipeWire(const std::string& socket, std::chrono::milliseconds limit)
{
    // Not by its name: PIPEWIRE_REMOTE would have it that every name is the same server's.
    UniqueFd connection = connectTo(socket);
    if (!connection.isValid()) {
        const bool isBusy = errno == EAGAIN;
        return {
            isBusy ? PipeWireAnswer::Kind::silent : PipeWireAnswer::Kind::absent, std::strerror(errno), {}};
    }
    pw_init(nullptr, nullptr);
    PipeWireAnswer answer = Reading().read(std::move(connection), limit);
    pw_deinit();
    return answer;
}

}  // namespace pavo::tools
