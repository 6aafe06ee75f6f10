#include "Tests/MacOS/AdapterFixture.h"

#include "Tests/Support/Wait.h"

extern "C" void* objc_autoreleasePoolPush();
extern "C" void objc_autoreleasePoolPop(void* mark);

namespace pavo::test {

namespace {

// Around each test.
class LifeChecker final : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo&) override
    {
        forgetCalls();
        forgetSystemCalls();
        pool_ = objc_autoreleasePoolPush();
    }

    void OnTestEnd(const testing::TestInfo&) override
    {
        endAllXPC();
        objc_autoreleasePoolPop(pool_);
        // What was sent to a queue may still hold something.
        if (waitFor([] { return objc::liveObjectCount() == 0; })) return;
        for (const char* name : objc::liveObjectClasses())
            ADD_FAILURE() << "Still alive: " << name;
    }

private:
    void* pool_ = nullptr;
};

const bool isInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new LifeChecker);
    return true;
}();

}  // namespace

std::set<std::string> textsIn(NSSet* strings)
{
    std::set<std::string> texts;
    for (NSString* string in strings)
        texts.insert(string.UTF8String);
    return texts;
}

}  // namespace pavo::test
