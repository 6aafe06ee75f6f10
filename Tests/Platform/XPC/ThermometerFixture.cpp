#include "Tests/Platform/XPC/ThermometerFixture.h"

#include <utility>

namespace pavo::test {

void ScriptedThermometer::onTemperature(TemperatureAnswer answer)
{
    const std::lock_guard lock(mutex_);
    temperatureAnswer_ = std::move(answer);
}

void ScriptedThermometer::onPlace(PlaceAnswer answer)
{
    const std::lock_guard lock(mutex_);
    placeAnswer_ = std::move(answer);
}

void ScriptedThermometer::temperature(xpc::Reply<std::uint64_t> reply)
{
    ++temperatureCount;
    TemperatureAnswer answer;
    {
        const std::lock_guard lock(mutex_);
        answer = temperatureAnswer_;
    }
    if (answer)
        answer(std::move(reply));
    else
        reply(21);
}

void ScriptedThermometer::place(const std::string& room, const ns::Data& marks,
                                xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>> reply)
{
    PlaceAnswer answer;
    {
        const std::lock_guard lock(mutex_);
        room_ = room;
        marks_ = marks;
        answer = placeAnswer_;
    }
    answer(std::move(reply));
}

std::string ScriptedThermometer::room() const
{
    const std::lock_guard lock(mutex_);
    return room_;
}

ns::Data ScriptedThermometer::marks() const
{
    const std::lock_guard lock(mutex_);
    return marks_;
}

bool ThermometerHouse::listenerShouldAcceptNewConnection(
    xpc::Listener&, const std::shared_ptr<xpc::Connection>& newConnection)
{
    newConnection->setExportedInterface(xpc::describe<Thermometer>());
    newConnection->setExportedObject(xpc::exportObject<Thermometer>(thermometer));
    {
        const std::lock_guard lock(mutex_);
        counts_.push_back(countHandlers(*newConnection));
        connections_.push_back(newConnection);
    }
    newConnection->resume();
    return true;
}

std::size_t ThermometerHouse::acceptedCount() const
{
    const std::lock_guard lock(mutex_);
    return connections_.size();
}

std::shared_ptr<xpc::Connection> ThermometerHouse::accepted(std::size_t index) const
{
    const std::lock_guard lock(mutex_);
    return connections_.at(index);
}

std::shared_ptr<HandlerCounts> ThermometerHouse::counts(std::size_t index) const
{
    const std::lock_guard lock(mutex_);
    return counts_.at(index);
}

void ThermometerHouse::clear()
{
    std::vector<std::shared_ptr<xpc::Connection>> old;
    {
        const std::lock_guard lock(mutex_);
        old.swap(connections_);
    }
    for (const auto& connection : old)
        connection->invalidate();
}

ns::Error connectionError(std::int64_t code)
{
    return {"NSCocoaErrorDomain", code};
}

ThermometerTest::ThermometerTest()
{
    listener->setDelegate(thermometers);
    registerName(kThermometerName);
}

void ThermometerTest::TearDown()
{
    stopListening();
    thermometers->clear();
    XPCTest::TearDown();
}

std::shared_ptr<xpc::Connection> ThermometerTest::dial(xpc::ConnectionOptions options,
                                                       const std::string& name)
{
    auto connection = xpc::Connection::withMachServiceName(name, options);
    connection->setRemoteObjectInterface(xpc::describe<Thermometer>());
    endLater(connection);
    return connection;
}

xpc::Remote<Thermometer> ThermometerTest::thermometerOf(xpc::Connection& connection)
{
    return xpc::Remote<Thermometer>::cast(connection.remoteObjectProxy()).value();
}

xpc::Remote<Thermometer> ThermometerTest::synchronousThermometerOf(xpc::Connection& connection,
                                                                   xpc::Proxy::ErrorHandler handler)
{
    return xpc::Remote<Thermometer>::cast(
               connection.synchronousRemoteObjectProxyWithErrorHandler(std::move(handler)))
        .value();
}

Reading ThermometerTest::read(xpc::Connection& connection)
{
    Reading reading;
    synchronousThermometerOf(connection, [&reading](const ns::Error& error) {
        reading.error = error;
    }).call<&Thermometer::temperature>([&reading](std::uint64_t degrees) { reading.degrees = degrees; });
    return reading;
}

std::future<Reading> ThermometerTest::readLater(const std::shared_ptr<xpc::Connection>& connection)
{
    return std::async(std::launch::async, [connection] { return read(*connection); });
}

}  // namespace pavo::test
