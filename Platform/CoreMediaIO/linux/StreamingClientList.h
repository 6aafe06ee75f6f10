#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionStream.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace cmio {

// The observable list of clients that a stream has.
//
// Threads: any. Observers are called by the thread that changes the list, after the change, without a lock.
class StreamingClientList final {
public:
    using Handler = std::function<void(const ExtensionStream::ClientsChange&)>;

    StreamingClientList();
    ~StreamingClientList();

    std::vector<ExtensionClient> clients() const;
    bool isEmpty() const;
    void set(std::vector<ExtensionClient> clients);
    // The observation may outlive the list.
    ns::KeyValueObservation observe(Handler handler);

private:
    struct Observer;
    struct State;

    std::shared_ptr<State> state_;
};

}  // namespace cmio
