// start-up, version-range, messages, unknown-messages, shut-down.
#include "host/check/deviations.h"
#include "host/check/naming.h"
#include "host/check/tests.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <vector>

namespace fmxhost::check {
namespace {

constexpr std::int64_t oldestApiVersion = 50;
constexpr std::int64_t newestApiVersion = 255;

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

template <class Entry>
void reportRemaining(const Examination& examination, const std::vector<Entry>& entries, EntryKind kind)
{
    for (const Entry& entry : entries) {
        reportDeviation(examination, "shut-down", entry.pluginId, kind, entry.id, nameOf(entry) + " stays registered");
    }
}

// The lowest descriptors that are open: those that a host is likely to have.
std::vector<unsigned> openDescriptors()
{
    constexpr int examined = 256;
    std::vector<unsigned> open;
    for (int descriptor = 0; descriptor < examined; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            open.push_back(static_cast<unsigned>(descriptor));
        }
    }
    return open;
}

// Those of the first that aren't among the second.
std::vector<unsigned> missingFrom(const std::vector<unsigned>& first, const std::vector<unsigned>& second)
{
    std::vector<unsigned> missing;
    std::set_difference(first.begin(), first.end(), second.begin(), second.end(), std::back_inserter(missing));
    return missing;
}

void reportClosed(const Examination& examination, const std::vector<unsigned>& closed)
{
    if (!closed.empty()) {
        examination.fail("it closes file descriptors of the host's: " + numbersText(closed));
    }
}

// A message that FileMaker sends to those who ask for it in their options string, and where they ask.
struct OptionalMessage {
    Message message;
    std::size_t option;
};
constexpr std::array<OptionalMessage, 4> optionalMessages{
    {{Message::idle, 8}, {Message::preferences, 5}, {Message::sessionShutDown, 9}, {Message::fileShutDown, 9}}};

bool asksFor(const Plugin& plugin, const OptionalMessage& message)
{
    const std::u16string& options = plugin.options();
    return options.size() > message.option && options[message.option] == u'Y';
}

// Which fields of a call record differ.
std::string changedFields(const FMX_ExternCallStruct& before, const FMX_ExternCallStruct& after)
{
    struct Field {
        std::string_view name;
        std::size_t offset;
        std::size_t size;
    };
#define FIELD(name)                                                                                                    \
    Field                                                                                                              \
    {                                                                                                                  \
#name, offsetof(FMX_ExternCallStruct, name), sizeof(FMX_ExternCallStruct::name)                                \
    }
    constexpr std::array fields{FIELD(extnVersion),  FIELD(unusedID),    FIELD(entryPoint), FIELD(cfmCalls),
                                FIELD(whichCall),    FIELD(unsafeCalls), FIELD(parm1),      FIELD(parm2),
                                FIELD(parm3),        FIELD(instanceID),  FIELD(result),     FIELD(unused),
                                FIELD(cStartScript), FIELD(cCurrentEnv)};
#undef FIELD
    std::string names;
    for (const Field& field : fields) {
        const auto* old = reinterpret_cast<const char*>(&before) + field.offset;
        const auto* now = reinterpret_cast<const char*>(&after) + field.offset;
        if (std::memcmp(old, now, field.size) != 0) {
            names.append(names.empty() ? "" : ", ").append(field.name);
        }
    }
    return names;
}

// Sends one message with a record in which a change would show, also behind the address in its result field. Answers
// what is wrong, if anything.
std::string sendUnknown(const Examination& examination, Plugin& plugin, std::uint8_t message)
{
    constexpr std::uint8_t parameter1 = 131;
    constexpr fmx::ptrtype parameter2 = 0x1122334455667788;
    std::array<fmx::unichar16, 1024> buffer{};
    buffer.fill(0xE5A7);
    const auto untouched = buffer;
    FMX_ExternCallStruct expected = plugin.record();
    expected.whichCall = message;
    expected.parm1 = parameter1;
    expected.parm2 = parameter2;
    expected.parm3 = buffer.size();
    expected.result = reinterpret_cast<fmx::ptrtype>(buffer.data());

    examination.step("message " + std::to_string(message));
    plugin.send(static_cast<Message>(message), parameter1, parameter2, buffer.size(), expected.result);
    examination.step("");
    if (buffer != untouched) {
        return "written to where the result field points";
    }
    const std::string fields = changedFields(expected, plugin.record());
    return fields.empty() ? "" : "the call record is changed: " + fields;
}

} // namespace

void examineStartUp(Examination& examination)
{
    const std::vector<unsigned> descriptors = openDescriptors();
    examination.started();
    reportClosed(examination, missingFrom(descriptors, openDescriptors()));
    const std::int64_t answer = examination.startUpAnswer();
    if (answer < oldestApiVersion || answer > newestApiVersion) {
        examination.fail("start-up answers " + std::to_string(answer) +
                         "; expected: the SDK version that the plug-in was built for, 50 to 255");
    }
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
        examination.fail("start-up isn't refused: it answers " + std::to_string(answer) + " instead of -1");
    } catch (const PluginError& error) {
        if (error.kind() != PluginError::Kind::refused) {
            throw;
        }
    }
    examination.step("");
    for (const std::string& name : registeredNames()) {
        examination.fail("start-up registers " + name);
    }
}

void examineMessages(Examination& examination)
{
    Plugin& plugin = examination.started();
    for (const OptionalMessage& optional : optionalMessages) {
        // What the preferences' message opens is a dialog.
        if (optional.message == Message::preferences || !asksFor(plugin, optional)) {
            continue;
        }
        examination.step("message " + std::to_string(static_cast<unsigned>(optional.message)));
        plugin.send(optional.message);
        examination.step("");
    }
}

void examineUnknownMessages(Examination& examination)
{
    Plugin& plugin = examination.started();
    const std::vector<std::string> before = registeredNames();
    // Those between the ones that FileMaker sends, all behind them, and those that this plug-in doesn't ask for.
    constexpr unsigned firstUnknown = 10;
    std::vector<unsigned> messages{2, 3, 6};
    for (const OptionalMessage& optional : optionalMessages) {
        if (!asksFor(plugin, optional)) {
            messages.push_back(static_cast<unsigned>(optional.message));
        }
    }
    std::sort(messages.begin(), messages.end());
    for (unsigned message = firstUnknown; message <= 255; ++message) {
        messages.push_back(message);
    }
    std::map<std::string, std::vector<unsigned>> messagesByFault;
    for (const unsigned message : messages) {
        if (std::string fault = sendUnknown(examination, plugin, static_cast<std::uint8_t>(message)); !fault.empty()) {
            messagesByFault[std::move(fault)].push_back(message);
        }
    }
    for (const auto& [fault, numbers] : messagesByFault) {
        examination.fail("message " + numbersText(numbers) + ": " + fault);
    }
    if (registeredNames() != before) {
        examination.fail("they change what is registered");
    }
}

void examineShutDown(Examination& examination)
{
    const std::vector<unsigned> hosts = openDescriptors();
    Plugin& plugin = examination.started();
    const std::vector<unsigned> closedBefore = missingFrom(hosts, openDescriptors());
    examination.step("the shut-down message");
    plugin.shutDown();
    examination.reach(Stage::ended);
    examination.step("");
    reportClosed(examination, missingFrom(missingFrom(hosts, openDescriptors()), closedBefore));
    reportRemaining(examination, fmxkit::externalFunctions(), EntryKind::function);
    reportRemaining(examination, fmxkit::scriptSteps(), EntryKind::scriptStep);
}

} // namespace fmxhost::check
