#include "Tests/EndToEnd/DaemonObserver.h"

#include "Tests/Support/Patience.h"

#include <pipewire/pipewire.h>

#include <utility>

namespace pavo::test {

struct DaemonObserver::Impl {
    explicit Impl(std::string wanted) : nodeName(std::move(wanted)) {}

    static void onDone(void* data, std::uint32_t id, int)
    {
        if (id == PW_ID_CORE) static_cast<Impl*>(data)->answered = Clock::now();
    }
    static void onGlobal(void* data, std::uint32_t, std::uint32_t, const char*, std::uint32_t,
                         const spa_dict* properties)
    {
        auto& self = *static_cast<Impl*>(data);
        const char* name = properties ? spa_dict_lookup(properties, PW_KEY_NODE_NAME) : nullptr;
        if (name && self.nodeName == name) self.seen = Clock::now();
    }

    const std::string nodeName;
    pw_loop* loop = nullptr;
    pw_context* context = nullptr;
    std::optional<Clock::time_point> answered;
    std::optional<Clock::time_point> seen;
};

DaemonObserver::DaemonObserver(std::string nodeName) : impl_(std::make_unique<Impl>(std::move(nodeName)))
{
    pw_init(nullptr, nullptr);
    impl_->loop = pw_loop_new(nullptr);
    impl_->context = pw_context_new(impl_->loop, nullptr, 0);
}

DaemonObserver::~DaemonObserver()
{
    pw_context_destroy(impl_->context);
    pw_loop_destroy(impl_->loop);
    pw_deinit();
}

std::optional<DaemonObserver::Times> DaemonObserver::observe()
{
    static const pw_core_events coreEvents = [] {
        pw_core_events all{};
        all.version = PW_VERSION_CORE_EVENTS;
        all.done = Impl::onDone;
        return all;
    }();
    static const pw_registry_events registryEvents = [] {
        pw_registry_events all{};
        all.version = PW_VERSION_REGISTRY_EVENTS;
        all.global = Impl::onGlobal;
        return all;
    }();

    Impl& self = *impl_;
    self.answered.reset();
    self.seen.reset();
    pw_loop_enter(self.loop);
    pw_core* core = pw_context_connect(self.context, nullptr, 0);
    if (core) {
        spa_hook coreHook{}, registryHook{};
        pw_core_add_listener(core, &coreHook, &coreEvents, &self);
        // Before the objects are listed: so this answer is the first.
        pw_core_sync(core, PW_ID_CORE, 0);
        pw_registry* registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        pw_registry_add_listener(registry, &registryHook, &registryEvents, &self);
        eventually([&self] {
            pw_loop_iterate(self.loop, 0);
            return self.answered && self.seen;
        });
        spa_hook_remove(&registryHook);
        spa_hook_remove(&coreHook);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
        pw_core_disconnect(core);
    }
    pw_loop_leave(self.loop);
    if (!self.answered || !self.seen) return std::nullopt;
    return Times{*self.answered, *self.seen};
}

}  // namespace pavo::test
