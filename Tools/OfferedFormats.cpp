#include "Tools/OfferedFormats.h"

#include <pipewire/pipewire.h>
#include <spa/debug/types.h>
#include <spa/param/format-utils.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>

#include <algorithm>
#include <span>
#include <utility>

namespace pavo::tools {

// PipeWire's callbacks, and the hooks that they hang on.
struct OfferedFormats::Events {
    static OfferedFormats& self(void* data) { return *static_cast<OfferedFormats*>(data); }

    static const pw_node_events& nodeTable()
    {
        static const pw_node_events events = [] {
            pw_node_events table{};
            table.version = PW_VERSION_NODE_EVENTS;
            table.info = [](void* data, const pw_node_info* info) {
                if ((info->change_mask & PW_NODE_CHANGE_MASK_PARAMS) == 0) return;
                for (const spa_param_info& each : std::span(info->params, info->n_params))
                    if ((each.flags & SPA_PARAM_INFO_READ) != 0) self(data).askFor(each.id);
            };
            table.param = [](void* data, int, std::uint32_t id, std::uint32_t, std::uint32_t,
                             const spa_pod* param) {
                if (id == SPA_PARAM_EnumFormat && param) self(data).add(param);
            };
            return table;
        }();
        return events;
    }

    static const pw_core_events& coreTable()
    {
        static const pw_core_events events = [] {
            pw_core_events table{};
            table.version = PW_VERSION_CORE_EVENTS;
            table.done = [](void* data, std::uint32_t id, int sequence) {
                if (id == PW_ID_CORE) self(data).answered(sequence);
            };
            return table;
        }();
        return events;
    }

    spa_hook node{};
    spa_hook core{};
};

OfferedFormats::OfferedFormats(pw_core* core, pw_registry* registry, std::uint32_t nodeId,
                               std::function<void()> onKnown)
    : core_(core),
      onKnown_(std::move(onKnown)),
      events_(std::make_unique<Events>())
{
    pw_core_add_listener(core_, &events_->core, &Events::coreTable(), this);
    node_ =
        static_cast<pw_node*>(pw_registry_bind(registry, nodeId, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
    if (node_) pw_node_add_listener(node_, &events_->node, &Events::nodeTable(), this);
}

OfferedFormats::~OfferedFormats()
{
    spa_hook_remove(&events_->core);
    if (!node_) return;
    spa_hook_remove(&events_->node);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(node_));
}

// A node that has just come may say only later that it has formats.
void OfferedFormats::askFor(std::uint32_t parameter)
{
    if (parameter != SPA_PARAM_EnumFormat || awaited_ >= 0) return;
    pw_node_enum_params(node_, 0, parameter, 0, UINT32_MAX, nullptr);
    awaited_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void OfferedFormats::add(const spa_pod* format)
{
    std::uint32_t type = 0, subtype = 0;
    if (spa_format_parse(format, &type, &subtype) < 0) return;
    if (subtype != SPA_MEDIA_SUBTYPE_raw) {
        add(spa_debug_type_find_short_name(spa_type_media_subtype, subtype));
        return;
    }
    const spa_pod_prop* property = spa_pod_find_prop(format, nullptr, SPA_FORMAT_VIDEO_format);
    if (!property) return;
    // One format, or a choice of them that has the preferred one twice.
    const spa_pod* value = &property->value;
    const bool isChoice = spa_pod_is_choice(value) && SPA_POD_CHOICE_VALUE_TYPE(value) == SPA_TYPE_Id &&
                          SPA_POD_CHOICE_VALUE_SIZE(value) == sizeof(std::uint32_t);
    if (!isChoice && !spa_pod_is_id(value)) return;
    std::uint32_t count = 0, choice = 0;
    const spa_pod* values = spa_pod_get_values(value, &count, &choice);
    for (const std::uint32_t id : std::span(static_cast<const std::uint32_t*>(SPA_POD_BODY(values)), count))
        add(spa_debug_type_find_short_name(spa_type_video_format, id));
}

void OfferedFormats::add(const char* name)
{
    if (name && std::ranges::find(names_, name) == names_.end()) names_.emplace_back(name);
}

void OfferedFormats::answered(int sequence)
{
    if (awaited_ < 0 || sequence != awaited_) return;
    areKnown_ = true;
    onKnown_();
}

}  // namespace pavo::tools
