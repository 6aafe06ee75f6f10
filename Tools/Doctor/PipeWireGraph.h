#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace pavo::tools {

// What is in a PipeWire at one moment.
struct PipeWireGraph {
    struct Object {
        std::uint32_t id = 0;
        std::string type;  // the interface's short name, such as "Node"
        std::map<std::string, std::string> properties;
        std::string state;  // of nodes: "suspended", "idle", "running"…

        // Empty where it has none of that name.
        std::string property(const std::string& name) const;
    };

    std::string version;
    std::vector<Object> objects;

    // The cameras of that node.name.
    std::vector<Object> cameras(const std::string& name) const;
    // Whether something links this node with another one.
    bool isLinked(std::uint32_t node) const;
};

struct PipeWireAnswer {
    enum class Kind { answered, absent, silent };
    Kind kind = Kind::absent;
    std::string problem;  // where it has not answered
    PipeWireGraph graph;

    bool isThere() const { return kind == Kind::answered; }
};

// Asks the PipeWire that listens on this socket.
PipeWireAnswer readPipeWire(const std::string& socket, std::chrono::milliseconds limit);

}  // namespace pavo::tools
