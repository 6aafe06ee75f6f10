#pragma once

#include "Platform/Support/Dispatch.h"
#include "Tests/MacOS/Runtime/Invocation.h"

#include <Foundation/Foundation.h>

#include <memory>
#include <mutex>
#include <vector>

// What the caller of a message with a reply waits for: the reply or an error, whichever is first.
@interface PavoAnswer : NSObject
- (instancetype)initWithBlock:(id)block
                        types:(const std::string&)types
                 errorHandler:(void (^)(NSError*))errorHandler
                        queue:(const dispatch::Queue&)queue
                isSynchronous:(BOOL)isSynchronous;
// What the called object gets in place of the caller's reply block.
- (id)substitute;
- (void)failWithCode:(NSInteger)code;
// Runs the reply or the error handler on this thread, as soon as one of them is due.
- (void)waitForIt;
@end

namespace pavo::test {

// Whether connections and listeners that are made from now on reach each other in this process.
void setCarriesMessages(bool carries);
bool carriesMessages();

// One end of what lies between two connections of this process. Messages go through two serial queues, that
// of the sender, where they wait until it is resumed, and that of the receiver, where all runs that it hears.
// The receiver takes what its exported interface has under the same types, and ends for anything else.
class XPCLine final : public std::enable_shared_from_this<XPCLine> {
public:
    explicit XPCLine(NSXPCConnection* connection) : connection_(connection) {}
    ~XPCLine();

    void resume();
    void invalidate();
    void send(std::string types, objc::Invocation message, PavoAnswer* answer);
    // Null: there is nobody at the other end now.
    bool hasPeer() const;
    const dispatch::Queue& inbox() const { return inbox_; }

private:
    static dispatch::Queue suspendedQueue();
    // The other end, which is dialled where there is none. On the outbox.
    std::shared_ptr<XPCLine> dial();
    void receive(const std::string& types, const objc::Invocation& message);
    void peerEnded(const std::shared_ptr<XPCLine>& peer);
    void failAnswers(NSInteger code);

    const dispatch::Queue inbox_ = suspendedQueue();
    const dispatch::Queue outbox_ = suspendedQueue();
    __weak NSXPCConnection* const connection_;
    mutable std::mutex mutex_;  // guards what follows
    bool isResumed_ = false;
    bool isOver_ = false;
    bool isAccepted_ = false;
    std::shared_ptr<XPCLine> peer_;
    std::vector<PavoAnswer*> answers_;
};

}  // namespace pavo::test
