// machine/story.cpp - what a call log shows, line by line.
#include "machine/story.h"

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "hosted/described/names.h"
#include "hosted/described/text.h"
#include "machine/call_line.h"
#include "machine/constants.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/log.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/task.h"

namespace verbs {
namespace {

using hosted::call;
using hosted::described::index_naming;
using hosted::described::item_name;
using hosted::described::meaning;
using hosted::described::naming;

constexpr size_t INDENT = 2;
constexpr size_t DEEPEST = 20;            // levels that are still indented
constexpr size_t MOST_OPEN = 100;         // devices, and begun requests of one; then the oldest is forgotten
constexpr size_t LONGEST_REGISTER = 256;  // bytes of a name
constexpr std::string_view OWN = "own ";  // of the task and the thread that made the calls

// ---- what numbers mean ----------------------------------------------------------------------------------------------

// How a number is shown.
struct showing {
    enum kind : uint8_t { plain, amount, handle, name, bits, address, request, characters, piece, register_id };
    kind how = plain;
    std::string_view word = {};  // what a handle names if no line has shown it; the prefix of a name and of bits
};
constexpr showing NUMBER, AMOUNT{showing::amount}, HANDLE{showing::handle}, ADDRESS{showing::address},
    REQUEST{showing::request}, TEXT{showing::characters}, PORT{showing::handle, "port"}, TASK{showing::handle, "task"},
    THREAD{showing::handle, "thread"}, MEMO{showing::handle, "memo"}, RESULT{showing::name, "RESULT_"},
    PIECE{showing::piece}, REGISTER{showing::register_id}, REGISTER_TYPE{showing::bits, "CPUREG_"};

// The words of messages.
constexpr struct {
    uint64_t code;
    showing word1, word2;
} messages[] = {
    {DEVMSG_OPEN, PORT, TASK},
    {DEVMSG_OPENED, NUMBER, ADDRESS},
    {DEVMSG_CLOSE, NUMBER, PORT},
    {DEVMSG_CREATE_REQUEST, ADDRESS, AMOUNT},
    {DEVMSG_REQUEST_CREATED, NUMBER, ADDRESS},
    {DEVMSG_DELETE_REQUEST, ADDRESS, REQUEST},
    {DEVMSG_REQUEST_DELETED, NUMBER, REQUEST},
    {DEVMSG_DELETE_REQUEST_ASYNC, NUMBER, REQUEST},
    {IOMSG_BEGIN, PORT, REQUEST},
    {IOMSG_ABORT, PORT, REQUEST},
    {IOMSG_ABORTED, NUMBER, REQUEST},
    {IOMSG_FAILED, NUMBER, REQUEST},
    {IOMSG_DONE, NUMBER, REQUEST},
    {IOMSG_ABORT_ACKNOWLEDGED, NUMBER, REQUEST},
    {DEVQUERY_GET_CLASS + 1, NUMBER, {showing::name, "SERVICE_CLASS"}},
    {LOGMSG_LABELLED, TEXT, TEXT},
    {LOGMSG_PLAIN, TEXT, TEXT},
    {MSG_TASK_EXIT, TASK, NUMBER},
};

// Those about an open device, which go to its record's port.
constexpr uint64_t about_record[] = {DEVMSG_CLOSE, DEVMSG_CREATE_REQUEST,       DEVMSG_DELETE_REQUEST,
                                     IOMSG_BEGIN,  DEVMSG_DELETE_REQUEST_ASYNC, IOMSG_ABORT};

// What a handle names by the iterator that is on it, or by the prefix of its items; and the prefix of its states.
constexpr struct kind_of_object {
    uint64_t walk;
    std::string_view items, noun, states = {};
} kinds[] = {
    {ITERSEL_TASKS, "TASKINFO_", "task", "TASKSTATE_"},
    {ITERSEL_THREADS, "THREADINFO_", "thread", "THREADSTATE_"},
    {ITERSEL_ISRS, "ISRINFO_", "ISR"},
    {ITERSEL_MEMOS, "MEMOINFO_", "memo"},
    {ITERSEL_VIEWS, "VIEWINFO_", "view"},
    {ITERSEL_MEMCHUNKS, "MEMINFO_", "memory chunk"},
    {ITERSEL_VSPACES, "VSINFO_", "virtual space"},
};

// Parameters, of one call or of all.
constexpr struct {
    std::string_view parameter;
    showing value;
    std::optional<call> of = {};
} parameters[] = {
    {"port", PORT},
    {"task", TASK},
    {"parent", TASK},
    {"thread", THREAD},
    {"memo", MEMO},
    {"handle", HANDLE},
    {"object", HANDLE},
    {"iterator", {showing::handle, "iterator"}},
    {"semaphore", {showing::handle, "semaphore"}},
    {"address", ADDRESS},
    {"ticks", AMOUNT},
    {"control", {showing::name, "CTRL_"}},
    {"exception", {showing::name, "EXC_"}},
    {"rights", {showing::name, "RIGHTS_"}},
    {"flags", {showing::name, "DELETE_"}, call::delete_object},
    {"kind", {showing::name, "ITERSEL_"}, call::begin_iterator},
    {"kind", {showing::name, "ADDRESS_MEMO_"}, call::get_address_memo},
};

// What calls make that is counted.
constexpr std::pair<call, const char *> makers[] = {{call::create_msg_port, "port"},
                                                    {call::create_semaphore, "semaphore"},
                                                    {call::create_iterator, "iterator"},
                                                    {call::get_address_memo, "memo"}};

template <class Table, class Fits> const auto *find_row(const Table &table, Fits fits) {
    const auto found = std::find_if(std::begin(table), std::end(table), fits);
    return found == std::end(table) ? nullptr : &*found;
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string name_or_number(std::string_view name, uint64_t number) {
    return name.empty() ? number_text(number) : std::string(name);
}

// An answer to a query has the query's code + 1.
std::string message_name(uint64_t code) {
    for (const auto prefix : {"DEVMSG_", "IOMSG_", "DEVQUERY_", "LOGMSG_", "MSG_"}) {
        if (const auto name = constant_name(prefix, code); !name.empty()) return std::string(name);
    }
    const auto query = constant_name("DEVQUERY_", code - 1);
    return query.empty() ? number_text(code) : std::string(query) + " + 1";
}

// The characters of a word, the first in its most significant byte.
std::string characters_of(uint64_t word) {
    std::string text;
    for (int shift = 56; shift >= 0; shift -= 8) {
        const auto c = static_cast<char>(word >> shift & 0xFF);
        if (c != '\0') text += c >= ' ' && c <= '~' ? c : '?';
    }
    return text;
}

// A piece of a register's name has its first character in the least significant byte.
std::string piece_of_name(uint64_t word) { return characters_of(__builtin_bswap64(word)); }

// "task 0x1020" and "own task" are both tasks.
bool is_labelled(std::string_view label, std::string_view noun) {
    if (label.starts_with(OWN)) label.remove_prefix(OWN.size());
    return label.starts_with(noun) && (label.size() == noun.size() || label[noun.size()] == ' ');
}

naming items_of(call which) {
    return which == call::get_state || which == call::set_state ? naming::state : naming::object;
}

// ---- the story ------------------------------------------------------------------------------------------------------

// All that the lines so far have shown of a run.
class story {
public:
    // Renders a line. One that shows that another run has begun on the log follows an empty line.
    std::string render(std::string_view line) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        size_t level = depth();
        std::string text(line);
        const auto made = parse_call(line);
        if (made) {
            before(*made);
            text = call_text(*made);
        } else if (line.starts_with(REQUEST_LINE)) {
            text = request_text(line.substr(REQUEST_LINE.size()));
        }
        const bool restarted = std::exchange(restarted_, false);
        if (restarted) level = 0;
        text.insert(0, INDENT * level, ' ');
        if (made) after(*made);
        return restarted ? '\n' + text : text;
    }

private:
    static constexpr std::string_view REQUEST_LINE = "# request ";

    // An object of the kernel. Several handles may name it.
    struct thing {
        std::string label = {};
        bool made = false;      // during the run: its handles name nothing else
        std::string noun = {};  // of one that is counted
        unsigned ordinal = 0;   // among the living of its noun
        size_t handles = 0;
        uint64_t walks = 0;  // of an iterator: ITERSEL_
        bool gone = false;
    };
    using reference = std::shared_ptr<thing>;

    struct begun_request {
        uint64_t id;
        reference reply;
    };

    // A device, from the message that opens it to the one that says it is closed.
    struct device {
        std::string name;
        reference reply;      // port at which the answer to its open or close is due
        uint64_t record = 0;  // address; 0 until it is open
        reference port = {};  // of the record, once known
        bool has_semaphore = false;
        std::list<begun_request> begun = {};
    };

    struct numbering {
        unsigned next = 1;
        std::set<unsigned> free = {};
    };

    // ---- what handles name ----

    // Null: nothing that a line has shown, or gone.
    reference find(uint64_t handle) const {
        const auto found = known_.find(handle);
        return found == known_.end() || found->second->gone ? nullptr : found->second;
    }

    // An object that the machine or a server made.
    reference bind(uint64_t handle, std::string label, bool made = true) {
        auto bound = std::make_shared<thing>(thing{.label = std::move(label), .made = made, .handles = 1});
        return known_[handle] = std::move(bound);
    }

    void learn(uint64_t handle, std::string_view noun) {
        if (noun.empty() || handle == 0 || handle >= SYSTEM_WIDE || known_.contains(handle)) return;
        bind(handle, std::string(noun) + " " + number_text(handle), false);
    }

    // The task or thread that makes the calls. Its handle is another one in each run on the live machine.
    void learn_caller(uint64_t handle, std::string_view noun) {
        learn(handle, noun);
        if (const auto caller = find(handle)) caller->label = std::string(OWN).append(noun);
    }

    // A run has one task. Another one's first calls may have been taken for this run's, so what they made stays known.
    void learn_task(uint64_t task) {
        if (own_task_ != 0 && own_task_ != task) {
            bind(own_task_, "task " + number_text(own_task_), false);
            devices_.clear();
            restarted_ = true;
        }
        own_task_ = task;
        learn_caller(task, "task");
    }

    // A run gets a handle once. One that it gets again for something else belongs to another run.
    void create(uint64_t handle, reference to) {
        if (const auto known = known_.find(handle); known != known_.end() && known->second->made &&
                                                    (known->second->gone || known->second->label != to->label)) {
            *this = story();
            restarted_ = true;
        }
        ++to->handles;
        known_[handle] = std::move(to);
    }

    void count(uint64_t handle, const std::string &noun) {
        const auto made = std::make_shared<thing>(thing{.made = true, .noun = noun});
        create(handle, made);
        auto &[next, free] = counted_[noun];
        made->ordinal = free.empty() ? next++ : free.extract(free.begin()).value();
        made->label = noun + " " + std::to_string(made->ordinal);
    }

    void forget(uint64_t handle, bool whole_object) {
        const auto deleted = find(handle);
        if (!deleted || !deleted->made || (!whole_object && --deleted->handles > 0)) return;
        deleted->gone = true;
        if (!deleted->noun.empty()) counted_[deleted->noun].free.insert(deleted->ordinal);
        // Nothing arrives at a deleted port any more.
        devices_.remove_if([&](const device &open) { return open.reply == deleted; });
        for (auto &open : devices_) open.begun.remove_if([&](const auto &begun) { return begun.reply == deleted; });
    }

    // Of the object that an item is read of; null: not known.
    const kind_of_object *kind_of(const logged_call &read) const {
        if (read.which == call::get_iterator_info) {
            const auto iterator = find(read["iterator"]);
            return find_row(kinds, [&](const auto &row) { return iterator && row.walk == iterator->walks; });
        }
        const auto item = item_name(naming::object, read["item"]);
        const auto known = find(read["handle"]);
        return find_row(kinds, [&](const auto &row) {
            return item.starts_with(row.items) || (known && is_labelled(known->label, row.noun));
        });
    }

    // ---- registers ----

    // The table of registers, read in its order: each one's id, its type and the pieces of its name.
    showing column_of(uint64_t index) const {
        constexpr showing columns[] = {REGISTER, REGISTER_TYPE, PIECE};
        return register_stride_ == 0 ? NUMBER : columns[std::min(index % register_stride_, std::size(columns) - 1)];
    }

    void learn_register(const logged_call &read) {
        const uint64_t index = read["index"], value = read["value"];
        if (read["group"] == KSYSIDX_REGISTERINFO && index == KSYSIDX_REGISTERINFO_STRIDE) register_stride_ = value;
        if (read["group"] != KSYSIDX_REGISTERINFO_TABLE) return;
        const auto column = column_of(index).how;
        if (column == showing::register_id) register_names_[listed_register_ = value].clear();
        if (column != showing::piece) return;
        if (auto &name = register_names_[listed_register_]; name.size() < LONGEST_REGISTER)
            name += piece_of_name(value);
    }

    // ---- devices ----

    size_t depth() const {
        size_t depth = 0;
        for (const auto &open : devices_) depth += 1 + open.begun.size();
        return std::min(depth, DEEPEST);
    }

    template <class Fits> device *newest(Fits fits) {
        const auto found = std::find_if(devices_.rbegin(), devices_.rend(), fits);
        return found == devices_.rend() ? nullptr : &*found;
    }

    // The device whose port a client uses. A new handle is that of the device which it has just looked up.
    std::string device_at(uint64_t port) {
        if (!find(port) && !looked_up_.empty()) bind(port, "port of " + looked_up_);
        looked_up_.clear();
        constexpr std::string_view lead = "port of ";
        const std::string label = handle_text(port, "port");
        return label.starts_with(lead) ? label.substr(lead.size()) : label;
    }

    // The open device that a message is about. The port of its record shows at the first such message.
    device *addressed(const logged_call &sent) {
        const uint64_t code = sent["code"];
        if (!find_row(about_record, [&](uint64_t each) { return each == code; })) return nullptr;
        const auto port = find(sent["port"]);
        if (device *const known = newest([&](const device &open) { return port && open.port == port; })) return known;
        const auto is_new = [](const device &open) { return open.record != 0 && !open.port; };
        device *meant = nullptr;
        if (code == DEVMSG_CREATE_REQUEST || code == DEVMSG_DELETE_REQUEST)
            meant = newest([&](const device &open) { return is_new(open) && open.record == sent["word1"]; });
        if (meant == nullptr) meant = newest(is_new);
        if (meant != nullptr) meant->port = bind(sent["port"], "port of " + meant->name);
        return meant;
    }

    void note_send(const logged_call &sent) {
        const uint64_t code = sent["code"];
        if (code == DEVMSG_OPEN) {
            if (devices_.size() == MOST_OPEN) devices_.pop_front();
            std::string name = device_at(sent["port"]);
            devices_.push_back({std::move(name), find(sent["word1"])});
            return;
        }
        device *const open = addressed(sent);
        if (open == nullptr) {
            static_cast<void>(device_at(sent["port"]));
        } else if (code == IOMSG_BEGIN) {
            if (!find(sent["word1"])) bind(sent["word1"], "reply port of " + open->name);
            if (open->begun.size() == MOST_OPEN) open->begun.pop_front();
            open->begun.push_back({sent["word2"], find(sent["word1"])});
        } else if (code == DEVMSG_CLOSE) {
            open->reply = find(sent["word2"]);
        } else {
            asked_ = open->name;
        }
    }

    void note_receive(const logged_call &received, const kernel_message &message) {
        const uint64_t port = received["port"];
        if (message.code == DEVMSG_OPENED && message.word2 != 0) {
            device *const open =
                newest([&](const device &each) { return each.record == 0 && each.reply == find(port); });
            if (open == nullptr) return;
            open->record = message.word2;
            open->reply = nullptr;
            addresses_[message.word2] = "record of " + open->name;
        } else if (message.code == DEVMSG_REQUEST_CREATED || message.code == DEVMSG_REQUEST_DELETED) {
            if (asked_.empty()) return;
            if (!find(port)) bind(port, "private port of " + asked_);
            if (message.code == DEVMSG_REQUEST_CREATED) addresses_[message.word2] = "request of " + asked_;
        } else if (message.code == IOMSG_DONE) {
            constexpr std::string_view directory = DEVICE_DIRECTORY;
            if (path_.starts_with(directory)) looked_up_ = quoted(std::string_view(path_).substr(directory.size()));
            path_.clear();
        }
    }

    // ---- calls ----

    // What a line shows that its own rendering needs.
    void before(const logged_call &made) {
        learn(made["parent"], "task");
        learn(made["task"], "task");
        if (made.which == call::send_msg && made["code"] == MSG_TASK_EXIT) learn(made["word1"], "task");
        if (made.which == call::control_object)
            learn(made["handle"], made["control"] == CTRL_SET_PROPERTY ? "task" : "thread");
        if (made.which == call::get_object_info) {
            if (const auto *const kind = kind_of(made)) learn(made["handle"], kind->noun);
        }
        if (!made.succeeded()) return;
        const uint64_t result = *made.result;
        if (const auto *const maker = find_row(makers, [&](const auto &row) { return row.first == made.which; })) {
            if (made.which != call::get_address_memo || !find(result)) count(result, maker->second);
        }
        const uint64_t item = made["item"];
        const auto create_labelled = [&](std::string label) {
            create(result, std::make_shared<thing>(thing{.label = std::move(label), .made = true}));
        };
        switch (made.which) {
        case call::create_handle:
            if (auto of = find(made["object"])) return create(result, std::move(of));
            return create_labelled(number_text(made["object"]));
        case call::get_state:
            if (item == KSTATE_REGISTRY_PORT && result != 0)
                return create_labelled("port of " + quoted(REGISTRY_DEVICE));
            if (item == KSTATE_EXIT_NOTICE_PORT && result != 0) return create_labelled("exit notice port");
            if (item == KSTATE_CURRENT_TASK) return learn_task(result);
            if (item == KSTATE_CURRENT_THREAD) return learn_caller(result, "thread");
            return;
        case call::get_system_data: return learn_register(made);
        case call::get_object_info:
        case call::get_iterator_info: return learn_value(made, made["value"]);
        case call::begin_iterator:
            if (const auto iterator = find(made["iterator"])) iterator->walks = made["kind"];
            return;
        case call::wait_semaphore:
            if (!find(made["semaphore"])) {
                device *of = newest([](const device &open) { return open.record != 0 && !open.has_semaphore; });
                if (of == nullptr) of = newest([](const device &open) { return open.record != 0; });
                if (of == nullptr) return;
                of->has_semaphore = true;
                bind(made["semaphore"], "semaphore of " + of->name);
            }
            return;
        case call::send_msg: return note_send(made);
        default:
            if (const auto message = made.received()) note_receive(made, *message);
        }
    }

    void learn_value(const logged_call &read, uint64_t value) {
        const showing shown = value_of_item(read);
        if (shown.how == showing::handle) learn(value, shown.word);
    }

    void after(const logged_call &made) {
        if (made.which == call::delete_object && made.succeeded())
            forget(made["handle"], made["flags"] == DELETE_OBJECT);
        const auto message = made.received();
        const auto port = message ? find(made["port"]) : nullptr;
        if (!port) return;
        if (message->code == DEVMSG_OPENED || message->code == DEVMSG_CLOSED)
            devices_.remove_if([&](const device &open) { return open.reply == port; });
        if (message->code != IOMSG_ABORTED && message->code != IOMSG_FAILED && message->code != IOMSG_DONE) return;
        const auto ends = [&](const auto &begun) { return begun.id == message->word2 && begun.reply == port; };
        for (auto &open : devices_) open.begun.remove_if(ends);
    }

    // ---- texts ----

    std::string handle_text(uint64_t handle, std::string_view noun) const {
        if (const auto named = find(handle)) return named->label;
        if (handle == NO_OBJECT) return "NO_OBJECT";
        if (handle == SYSTEM_WIDE) return "SYSTEM_WIDE";
        return noun.empty() || handle == 0 ? number_text(handle) : std::string(noun) + " " + number_text(handle);
    }

    std::string word_text(showing shown, uint64_t word) const {
        switch (shown.how) {
        case showing::amount: return hosted::described::number_text(word, false);
        case showing::handle: return handle_text(word, shown.word);
        case showing::name: return name_or_number(constant_name(shown.word, word), word);
        case showing::bits: return flag_names(shown.word, word);
        case showing::address: {
            const auto known = addresses_.find(word);
            return name_or_number(known == addresses_.end() ? std::string_view() : known->second, word);
        }
        case showing::request: return (word == 0 ? "" : "request ") + number_text(word);
        case showing::characters: return quoted(characters_of(word));
        case showing::piece: return quoted(piece_of_name(word));
        case showing::register_id: {
            const auto known = register_names_.find(word);
            return known == register_names_.end() || known->second.empty() ? number_text(word) : quoted(known->second);
        }
        case showing::plain: break;
        }
        return number_text(word);
    }

    // A message without a row is a query with its reply port, an answer, or not one of the protocols.
    std::string message_word(uint64_t code, bool second, uint64_t word) const {
        if (const auto *const row = find_row(messages, [&](const auto &each) { return each.code == code; }))
            return word_text(second ? row->word2 : row->word1, word);
        return word_text(!second && !constant_name("DEVQUERY_", code).empty() ? PORT : NUMBER, word);
    }

    showing value_of_item(const logged_call &read) const {
        const uint64_t item = read["item"];
        const naming names = items_of(read.which);
        if (names == naming::object && (item == OBJINFO_HANDLE || item == OBJINFO_STATE)) {
            const auto *const kind = kind_of(read);
            if (item == OBJINFO_HANDLE) return {showing::handle, kind == nullptr ? std::string_view() : kind->noun};
            if (kind != nullptr && !kind->states.empty()) return {showing::name, kind->states};
        }
        const auto *const known = hosted::described::find_meaning(names, item);
        if (known == nullptr) return AMOUNT;
        switch (known->means) {
        case meaning::handle: return {showing::handle, known->word};
        case meaning::name: return {showing::name, known->word};
        case meaning::bits: return {showing::bits, known->word};
        default: return NUMBER;
        }
    }

    std::string output_text(const logged_call &from, size_t index) const {
        const auto &words = from.arguments[index].words;
        if (from.arguments[index].count == 0) return {};
        if (from.which == call::get_object_info || from.which == call::get_iterator_info)
            return word_text(value_of_item(from), words[0]);
        if (from.which == call::get_system_data) {
            if (from["group"] == KSYSIDX_REGISTERINFO_TABLE) return word_text(column_of(from["index"]), words[0]);
            return word_text(index_naming(from["group"]) == naming::none ? NUMBER : AMOUNT, words[0]);
        }
        const auto message = from.received();
        if (!message) return number_text(words[0]);
        const std::string texts[] = {message_word(message->code, false, message->word1), message_name(message->code),
                                     message_word(message->code, true, message->word2)};
        return from.which == call::recv_msg ? texts[index - 1] : texts[0] + ", " + texts[1] + ", " + texts[2];
    }

    std::string argument_text(const logged_call &from, size_t index) const {
        const auto parameter = parameters_of(from.which)[index];
        const auto &argument = from.arguments[index];
        const uint64_t word = argument.words[0];
        if (argument.is_output) return "{" + output_text(from, index) + "}";
        if (argument.is_count) {
            const bool forever = parameter == "timeout" && word == static_cast<uint64_t>(WAIT_FOREVER);
            return forever ? "WAIT_FOREVER" : std::to_string(static_cast<int64_t>(word));
        }
        if (const auto *const row = find_row(parameters, [&](const auto &each) {
                return each.parameter == parameter && each.of.value_or(from.which) == from.which;
            }))
            return word_text(row->value, word);
        if (parameter == "item") return name_or_number(item_name(items_of(from.which), word), word);
        if (parameter == "group") return name_or_number(item_name(naming::data_group, word), word);
        if (parameter == "index") return name_or_number(item_name(index_naming(from["group"]), word), word);
        if (parameter == "code") return message_name(word);
        if (parameter == "word1" || parameter == "word2") return message_word(from["code"], parameter == "word2", word);
        const uint64_t control = from["control"];
        if (control == CTRL_SET_PROPERTY && parameter == "a") return word_text({showing::name, "TASKPROP_"}, word);
        if (control == CTRL_FETCH_REGISTER && parameter == "a") return word_text(REGISTER, word);
        return word_text(control == CTRL_SET_PROPERTY && parameter == "b" ? AMOUNT : NUMBER, word);
    }

    std::string call_text(const logged_call &from) const {
        std::string text(hosted::call_name(from.which));
        text += '(';
        for (size_t i = 0; i < from.arguments.size(); ++i) {
            text.append(i == 0 ? "" : ", ").append(argument_text(from, i));
        }
        text += ')';
        if (!from.result) return text;
        showing shown = RESULT;
        if (hosted::properties_of(from.which).returns == hosted::call_returns::handle) shown = HANDLE;
        if (from.which == call::get_state) shown = value_of_item(from);
        return text.append(" = ").append(word_text(shown, *from.result));
    }

    // The line before a request to the registry: its command and path.
    std::string request_text(std::string_view line) {
        const auto command = line.substr(0, line.find(' '));
        const auto path = line.substr(std::min(line.size(), command.size() + 1));
        const uint64_t code = hosted::described::parse_number(command).value_or(0);
        constexpr std::string_view tasks = PROCESS_DIRECTORY;
        constexpr size_t quotes = 2;
        if (path.size() == tasks.size() + TASK_KEY_SIZE + quotes && path.substr(1).starts_with(tasks))
            learn(parse_task_key(path.substr(1 + tasks.size(), TASK_KEY_SIZE)), "task");
        path_ = code == REGCMD_GET_INT && path.size() >= quotes ? path.substr(1, path.size() - quotes) : "";
        const auto name = constant_name("REGCMD_", code);
        return std::string(REQUEST_LINE).append(name.empty() ? command : name).append(" ").append(path);
    }

    std::unordered_map<uint64_t, reference> known_;
    std::map<std::string, numbering, std::less<>> counted_;
    std::list<device> devices_;                                 // in the order of their opening
    std::unordered_map<uint64_t, std::string> addresses_;       // of records and requests
    std::string path_;                                          // of the integer that the registry is asked for
    std::string looked_up_;                                     // device whose port it returned last
    std::string asked_;                                         // device that a creation or deletion was asked of last
    uint64_t own_task_ = 0;                                     // 0: not known
    uint64_t register_stride_ = 0;                              // items of a register in their table; 0: not known
    uint64_t listed_register_ = 0;                              // id of the one whose name is read
    std::unordered_map<uint64_t, std::string> register_names_;  // by id
    bool restarted_ = false;
};

}  // namespace

void render_log(std::string_view log, std::FILE *to) {
    story shown;
    for (size_t end = log.find('\n'); end != log.npos; end = log.find('\n')) {
        const std::string text = shown.render(log.substr(0, end)) + '\n';
        std::fwrite(text.data(), 1, text.size(), to);
        log.remove_prefix(end + 1);
    }
}

}  // namespace verbs
