#pragma once

#include "Tests/Producer/CameraDouble.h"

#include <gtest/gtest.h>
#include <pavo/producer.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

inline constexpr std::int64_t kLongNs = 10'000'000'000;

// Each test has a service name of its own, in a namespace of this program.
class ProducerFixture : public testing::Test {
protected:
    ProducerFixture();
    ~ProducerFixture() override;

    pavo_producer_config config(std::uint32_t format = PAVO_BGRA, std::uint32_t width = 64,
                                std::uint32_t height = 48) const;
    Producer open(const pavo_producer_config& config) const;
    // Open, with a camera that wants frames.
    Producer openWanted(const pavo_producer_config& config);
    Producer openWanted() { return openWanted(config()); }
    void startCamera(bool isSubscribed = true);
    // The next producer finds another camera: one that loses a producer late forgets the next one, too.
    void endCamera();

    // The next event of that type; those before it are dropped. None at the deadline.
    static std::optional<pavo_event> waitForEvent(const Producer& producer, pavo_event_type type);
    // Waits for a free surface.
    static std::optional<ProducerFrame> beginFrame(const Producer& producer);

    std::string service;
    std::shared_ptr<CameraDouble> camera;
};

}  // namespace pavo::test
