#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct pw_core;
struct pw_node;
struct pw_registry;
struct spa_pod;

namespace pavo::tools {

// Asks a camera's node in PipeWire which formats it offers. A stream cannot find that out: one that asks for
// another format is never linked, and hears nothing of it.
//
// Ownership: the core and the registry outlive this.
// Threads:   everything with the loop's lock held; `onKnown` is called on the loop.
// Errors:    a node that goes, or has no formats, never answers.
class OfferedFormats final {
public:
    OfferedFormats(pw_core* core, pw_registry* registry, std::uint32_t nodeId, std::function<void()> onKnown);
    ~OfferedFormats();
    OfferedFormats(const OfferedFormats&) = delete;
    OfferedFormats& operator=(const OfferedFormats&) = delete;

    // Once the node has answered.
    bool areKnown() const { return areKnown_; }
    // By the names that PipeWire has for them, as YUY2 or mjpg, in the node's order.
    const std::vector<std::string>& names() const { return names_; }

private:
    struct Events;

    void askFor(std::uint32_t parameter);
    void add(const spa_pod* format);
    void add(const char* name);
    void answered(int sequence);

    pw_core* const core_;
    const std::function<void()> onKnown_;
    const std::unique_ptr<Events> events_;
    pw_node* node_ = nullptr;
    int awaited_ = -1;  // the answer that ends the list; -1: not asked yet
    bool areKnown_ = false;
    std::vector<std::string> names_;
};

}  // namespace pavo::tools
