// load, start-up, version-range, messages, unknown-messages, shut-down, reload.
#include "host/check/test.h"

#include <fcntl.h>

#include <array>
#include <functional>
#include <map>
#include <utility>

namespace fmxhost::check {
namespace {

// What is registered now by whatever plug-in: there is but the one in this process.
std::vector<std::string> registeredNames()
{
    std::vector<std::string> names;
    for (const fmxkit::ExternalFunction& function : fmxkit::externalFunctions()) {
        names.push_back(nameOf(function));
    }
    for (const fmxkit::ScriptStep& step : fmxkit::scriptSteps()) {
        names.push_back(nameOf(step));
    }
    return names;
}

bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

// The lowest descriptors that are open: those that a host is likely to have.
std::vector<int> openDescriptors()
{
    std::vector<int> descriptors;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        if (isOpen(descriptor)) {
            descriptors.push_back(descriptor);
        }
    }
    return descriptors;
}

void expectOpen(const Examination& examination, const std::vector<int>& hosts)
{
    for (const int descriptor : hosts) {
        examination.expect(isOpen(descriptor), "it closes the host's file descriptor " + std::to_string(descriptor));
    }
}

// Whether FileMaker sends it: some messages only to those who ask for them in their options string.
bool isSent(Plugin& plugin, Message message)
{
    const auto asks = [&](std::size_t option) { return plugin.options().find(u'Y', option) == option; };
    switch (message) {
    case Message::startUp:
    case Message::shutDown:
    case Message::stringRequest:
        return true;
    case Message::preferences:
        return asks(5);
    case Message::idle:
        return asks(8);
    case Message::sessionShutDown:
    case Message::fileShutDown:
        return asks(9);
    }
    return false;
}

// Which fields of a call record differ, as far as a plug-in might write to them.
std::string changedFields(const FMX_ExternCallStruct& before, const FMX_ExternCallStruct& after)
{
    const std::pair<const char*, bool> fields[] = {{"extnVersion", before.extnVersion != after.extnVersion},
                                                   {"entryPoint", before.entryPoint != after.entryPoint},
                                                   {"whichCall", before.whichCall != after.whichCall},
                                                   {"parm1", before.parm1 != after.parm1},
                                                   {"parm2", before.parm2 != after.parm2},
                                                   {"parm3", before.parm3 != after.parm3},
                                                   {"result", before.result != after.result}};
    std::string names;
    for (const auto& [name, isChanged] : fields) {
        names += isChanged ? (names.empty() ? "" : ", ") + std::string(name) : "";
    }
    return names;
}

// Sends one message with a record in which a change would show, also behind the address in its result field. Returns
// what is wrong, if anything.
std::string sendUnknown(const Examination& examination, Plugin& plugin, unsigned message)
{
    constexpr std::uint8_t parameter1 = 131;
    constexpr fmx::ptrtype parameter2 = 0x1122334455667788;
    std::array<fmx::unichar16, 1024> buffer{};
    buffer.fill(0xE5A7);
    const auto untouched = buffer;
    FMX_ExternCallStruct expected = plugin.record();
    expected.whichCall = static_cast<unsigned char>(message);
    expected.parm1 = parameter1;
    expected.parm2 = parameter2;
    expected.parm3 = buffer.size();
    expected.result = reinterpret_cast<fmx::ptrtype>(buffer.data());

    examination.step("message " + std::to_string(message));
    plugin.send(static_cast<Message>(message), parameter1, parameter2, buffer.size(), expected.result);
    if (buffer != untouched) {
        return "written to where the result field points";
    }
    const std::string fields = changedFields(expected, plugin.record());
    return fields.empty() ? "" : "the call record is changed: " + fields;
}

} // namespace

void examineLoading(Examination& examination)
{
    examination.step("loading it");
    const Plugin plugin(examination.options().plugin);
    examination.reach(Stage::loaded);
}

void examineStartUp(Examination& examination)
{
    const std::vector<int> hosts = openDescriptors();
    const auto answer = static_cast<std::int64_t>(examination.started().record().result);
    expectOpen(examination, hosts);
    examination.expect(answer >= oldestApiVersion && answer <= newestApiVersion,
                       "start-up returns " + std::to_string(answer) +
                           "; expected: the SDK version that the plug-in was built for, 50 to 255");
}

void examineVersionRange(Examination& examination)
{
    Plugin& plugin = examination.loaded();
    if (!plugin.wantsStartUp()) {
        throw Skipped("its options string asks for no start-up message");
    }
    examination.step("the start-up message");
    try {
        const std::int64_t answer = plugin.start();
        examination.fail("start-up isn't refused: it returns " + std::to_string(answer) + " instead of -1");
    } catch (const PluginError& error) {
        if (error.kind() != PluginError::Kind::refused) {
            throw;
        }
    }
    for (const std::string& name : registeredNames()) {
        examination.fail("start-up registers " + name);
    }
}

void examineMessages(Examination& examination)
{
    Plugin& plugin = examination.started();
    // What the preferences' message opens is a dialog.
    for (const Message message : {Message::idle, Message::sessionShutDown, Message::fileShutDown}) {
        if (isSent(plugin, message)) {
            examination.step("message " + std::to_string(static_cast<unsigned>(message)));
            plugin.send(message);
        }
    }
}

void examineUnknownMessages(Examination& examination)
{
    Plugin& plugin = examination.started();
    const std::vector<std::string> before = registeredNames();
    std::map<std::string, unsigned> firstOfFault;
    for (unsigned message = 0; message <= 255; ++message) {
        if (!isSent(plugin, static_cast<Message>(message))) {
            firstOfFault.emplace(sendUnknown(examination, plugin, message), message);
        }
    }
    firstOfFault.erase("");
    for (const auto& [fault, message] : firstOfFault) {
        examination.fail("message " + std::to_string(message) + ": " + fault);
    }
    examination.expect(registeredNames() == before, "they change what is registered");
}

void examineShutDown(Examination& examination)
{
    std::vector<int> hosts = openDescriptors();
    examination.started();
    std::erase_if(hosts, std::not_fn(isOpen));
    examination.shutDown();
    expectOpen(examination, hosts);
    for (const std::string& name : registeredNames()) {
        examination.fail(name + " stays registered");
    }
}

void examineReloading(Examination& examination)
{
    // The first round may open what stays open by right, such as a log.
    constexpr int rounds = 100;
    std::size_t first = 0;
    for (int round = 0; round <= rounds; ++round) {
        examination.started();
        examination.shutDown();
        examination.unload();
        first = round == 0 ? openDescriptors().size() : first;
    }
    const std::size_t last = openDescriptors().size();
    examination.expect(last < first + rounds, "file descriptors stay open: " + std::to_string(last - first) +
                                                  " more after " + std::to_string(rounds) + " rounds");
}

} // namespace fmxhost::check
