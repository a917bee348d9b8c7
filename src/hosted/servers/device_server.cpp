// hosted/servers/device_server.cpp - opens, requests, completions, aborts and queries, of a healthy device or as the
// behaviour describes.
#include "hosted/servers/device_server.h"

#include <cstring>
#include <new>
#include <utility>

namespace hosted {

// ---- the reach of a protocol ----------------------------------------------------------------------------------------

std::span<std::byte> request_view::rest(uint64_t at) const {
    if (at - address < size) return memory.span(at, size - (at - address));
    if (at - buffer < buffer_size) return memory.span(at, buffer_size - (at - buffer));
    return {};
}

std::span<std::byte> request_view::bytes(uint64_t at, uint64_t length) const {
    const auto reachable = rest(at);
    return length <= reachable.size() ? reachable.first(length) : std::span<std::byte>{};
}

std::optional<std::string_view> request_view::text(uint64_t at, uint64_t longest) const {
    auto reachable = rest(at);
    if (reachable.size() > longest) reachable = reachable.first(longest + 1);
    const auto *begin = reinterpret_cast<const char *>(reachable.data());
    const void *end = reachable.empty() ? nullptr : std::memchr(begin, '\0', reachable.size());
    if (end == nullptr) return std::nullopt;
    return std::string_view(begin, static_cast<size_t>(static_cast<const char *>(end) - begin));
}

// ---- messages -------------------------------------------------------------------------------------------------------

device_server::device_server(server_host &host, device_behaviour behaviour)
    : host_(host), behaviour_(std::move(behaviour)) {}

// The ports and the memory go with the host.
device_server::~device_server() = default;

void device_server::add(std::unique_ptr<device_protocol> protocol) { protocols_.push_back(std::move(protocol)); }

void device_server::receive(const delivery &received) {
    const kernel_message &message = received.message;
    switch (message.code) {
    case DEVMSG_OPEN: return open(message.word1, host_.task_of(message.word2));
    case DEVMSG_CLOSE: return close(message.word2, received.handle);
    case DEVMSG_CREATE_REQUEST: return create(message.word1, message.word2);
    case DEVMSG_DELETE_REQUEST:
        if (const auto known = records_.find(message.word1); known != records_.end()) {
            if (const request *named = find(message.word2); named != nullptr && named->record == known->first) {
                remove(message.word2);
            }
            host_.post(known->second.private_port, DEVMSG_REQUEST_DELETED, message.word2);
        }
        return;
    case DEVMSG_DELETE_REQUEST_ASYNC: return remove(message.word2);
    case IOMSG_BEGIN: return begin(message.word1, message.word2);
    case IOMSG_ABORT: return abort(message.word1, message.word2);
    default: return query(message);
    }
}

void device_server::query(const kernel_message &message) {
    const auto code = static_cast<uint32_t>(message.code);
    if (const auto listed = behaviour_.answers.find(code); listed != behaviour_.answers.end()) {
        const device_behaviour::answer &given = listed->second;
        if (given.silent) return;
        const uint32_t reply = given.code.value_or(code + 1);
        const auto post = [&to = host_, port = message.word1, reply, value = given.value, times = given.times] {
            for (uint32_t i = 0; i < times; ++i) to.post(port, reply, value);
        };
        return given.delay <= 0 ? post() : host_.after(given.delay, post);
    }
    if (const auto value = answer(code, message.word2)) return host_.post(message.word1, code + 1, *value);
    for (const auto &protocol : protocols_) {
        if (protocol->direct(message)) return;
    }
    host_.post(message.word1, QUERY_UNKNOWN_ANSWER, 0);
}

std::optional<uint64_t> device_server::answer(uint32_t code, uint64_t parameter) const {
    if (const auto listed = behaviour_.queries.find(code); listed != behaviour_.queries.end()) return listed->second;
    if (code == DEVQUERY_PING) return 0;
    if (code == DEVQUERY_GET_CLASS && parameter < behaviour_.classes.size()) return behaviour_.classes[parameter];
    return std::nullopt;
}

// ---- device records -------------------------------------------------------------------------------------------------

void device_server::open(uint64_t reply_port, uint64_t client) {
    using opening = device_behaviour::opening;
    if (behaviour_.open == opening::silent) return;
    release_records([this](const record &known) { return host_.has_ended(known.client); });
    host_.post(reply_port, DEVMSG_OPENED, behaviour_.open == opening::null ? 0 : make_record(client));
}

// The address of a new record; 0 where there is no memory for it. The open is then refused, not failed: its sender may
// wait for the answer all the same.
uint64_t device_server::make_record(uint64_t client) {
    record made;
    made.client = client;
    try {
        if (fill_record(made)) return made.address;
    } catch (const std::bad_alloc &) {  // as where the arena is full
    }
    release_requests();
    release(made);
    return 0;
}

// On failure the record lists what was made so far, to be released with it.
bool device_server::fill_record(record &made) {
    made.address = host_.memory().allocate(sizeof(device_record));
    auto *shared = host_.memory().record<device_record>(made.address);
    if (shared == nullptr) return false;
    made.server_port = host_.new_handle_to(port());
    made.private_port = host_.new_port(made.client);
    made.semaphore = host_.new_semaphore(made.client, 1);
    if (context_size_ != 0 && !make_client_context(made)) return false;
    shared->accepted = behaviour_.open == device_behaviour::opening::refuse ? 0 : 1;
    shared->semaphore = made.semaphore;
    shared->server_port = made.server_port;
    shared->private_port = made.private_port;
    shared->context = made.context;
    records_.emplace(made.address, made);
    return true;
}

bool device_server::make_client_context(record &made) {
    arena &memory = host_.memory();
    made.context = memory.allocate(sizeof(client_context));
    made.buffer = memory.allocate(context_size_);
    auto *context = memory.record<client_context>(made.context);
    if (context == nullptr || made.buffer == 0) return false;
    made.lock = host_.new_semaphore(made.client, 1);
    made.context_port = host_.new_port(made.client);
    context->lock = made.lock;
    context->buffer = made.buffer;
    context->buffer_size = context_size_;
    if (behaviour_.null_requests) return true;
    IOreq *shared = make_request(made.address, sizeof(IOreq));
    if (shared == nullptr) return false;
    shared->reply_port = made.context_port;
    shared->status = IOREQ_STATUS_NEW;
    shared->flags = IOREQ_FLAGS_DEFAULT;
    context->request = reinterpret_cast<uint64_t>(shared);
    return true;
}

void device_server::close(uint64_t reply_port, uint64_t server_port) {
    release_records([server_port](const record &known) { return known.server_port == server_port; });
    host_.post(reply_port, DEVMSG_CLOSED, 0);
}

void device_server::client_ended(uint64_t task) {
    release_records([task](const record &known) { return known.client == task; });
}

// Moves whole nodes, which takes no memory, and looks through the requests once, however many records go.
template <class Test> void device_server::release_records(Test is_gone) {
    std::map<uint64_t, record> gone;
    for (auto next = records_.begin(); next != records_.end();) {
        const auto known = next++;
        if (is_gone(known->second)) gone.insert(records_.extract(known));
    }
    if (gone.empty()) return;
    release_requests();
    for (const auto &[address, one] : gone) release(one);
}

// Releases the requests whose device record is gone.
void device_server::release_requests() {
    std::erase_if(requests_, [this](const auto &known) {
        if (records_.contains(known.second.record)) return false;
        drop(known.second);
        return true;
    });
}

void device_server::release(const record &gone) {
    for (const uint64_t object : {gone.private_port, gone.semaphore, gone.lock, gone.context_port}) {
        host_.destroy(object);
    }
    host_.close_handle(gone.server_port);  // unless the client has done so
    for (const uint64_t block : {gone.buffer, gone.context, gone.address}) host_.memory().release(block);
}

// ---- requests -------------------------------------------------------------------------------------------------------

void device_server::create(uint64_t record_address, uint64_t size) {
    const auto known = records_.find(record_address);
    if (known == records_.end()) return;  // no record, no port to reply on
    IOreq *made = behaviour_.null_requests ? nullptr : make_request(record_address, size);
    host_.post(known->second.private_port, DEVMSG_REQUEST_CREATED, reinterpret_cast<uint64_t>(made));
}

IOreq *device_server::make_request(uint64_t record_address, uint64_t size) {
    if (size < sizeof(IOreq)) return nullptr;
    const uint64_t address = host_.memory().allocate(size);
    auto *shared = host_.memory().record<IOreq>(address);
    if (shared == nullptr) return nullptr;
    shared->id = ++last_id_;
    shared->device = record_address;
    requests_.emplace(last_id_, request{.id = last_id_, .address = address, .size = size, .record = record_address});
    return shared;
}

device_server::request *device_server::find(uint64_t id) {
    const auto known = requests_.find(id);
    return known == requests_.end() ? nullptr : &known->second;
}

void device_server::remove(uint64_t id) {
    const auto known = requests_.find(id);
    if (known == requests_.end()) return;
    drop(known->second);
    requests_.erase(known);
}

void device_server::drop(const request &gone) {
    for (const auto &protocol : protocols_) protocol->forget(host_.memory(), gone.address);
    host_.memory().release(gone.address);
}

void device_server::begin(uint64_t reply_port, uint64_t id) {
    request *begun = find(id);
    if (begun == nullptr) return host_.post(reply_port, IOMSG_FAILED, id);
    if (begun->pending) return;  // the first begin is still owed its answer
    begun->pending = true;
    begun->begun = ++begins_;
    begun->reply_port = reply_port;

    const device_behaviour::outcome *outcome = &healthy_;
    if (!behaviour_.requests.empty()) {
        const uint32_t command = host_.memory().record<IOreq>(begun->address)->command;
        const auto listed = behaviour_.requests.find(command);
        if (listed != behaviour_.requests.end()) outcome = &listed->second;
    }
    if (outcome->silent) return;
    if (outcome->delay <= 0) return finish(*begun, *outcome);
    host_.after(outcome->delay, [this, id, begins = begins_, outcome] {
        request *late = find(id);
        if (late != nullptr && late->pending && late->begun == begins) finish(*late, *outcome);
    });
}

void device_server::finish(request &done, const device_behaviour::outcome &outcome) {
    done.pending = false;
    const request_view view = view_of(done);
    uint32_t code = IOMSG_ABORTED;
    if (!outcome.abort) {
        const uint32_t error = outcome.error ? *outcome.error : perform(view);
        const bool failed = outcome.error || error != 0;
        if (failed) view.header.error = error;
        code = failed ? IOMSG_FAILED : IOMSG_DONE;
    }
    for (const auto &[base, written] :
         {std::pair(view.address, &outcome.request_bytes), std::pair(view.payload, &outcome.payload_bytes)}) {
        for (const auto &[offset, bytes] : *written) {
            const auto reached = view.bytes(base + offset, bytes.size());
            if (!reached.empty()) std::memcpy(reached.data(), bytes.data(), reached.size());
        }
    }
    // Copies: an answer to this server's own port, with a code from the behaviour, may delete the request.
    const uint64_t reply_port = done.reply_port, id = done.id;
    for (uint32_t i = 0; i < outcome.times; ++i) host_.post(reply_port, outcome.code.value_or(code), id);
}

request_view device_server::view_of(const request &viewed) const {
    IOreq *header = host_.memory().record<IOreq>(viewed.address);
    const auto opened = records_.find(viewed.record);
    const uint64_t buffer = opened == records_.end() ? 0 : opened->second.buffer;
    return {.memory = host_.memory(),
            .header = *header,
            .address = viewed.address,
            .size = viewed.size,
            .payload = read_once(header->payload),
            .buffer = buffer,
            .buffer_size = buffer != 0 ? context_size_ : 0,
            .client = opened == records_.end() ? 0 : opened->second.client};
}

std::optional<request_subject> device_server::subject_of(const kernel_message &message) {
    const request *named = message.code == IOMSG_BEGIN ? find(message.word2) : nullptr;
    if (named == nullptr) return std::nullopt;
    const request_view view = view_of(*named);
    request_subject subject{view.header.command, {}};
    for (const auto &protocol : protocols_) subject.path += protocol->path_of(subject.command, view);
    return subject;
}

uint32_t device_server::perform(const request_view &view) {
    const uint32_t command = read_once(view.header.command);
    for (const auto &protocol : protocols_) {
        if (const auto error = protocol->perform(command, view)) return *error;
    }
    return IOERROR_BAD_COMMAND;
}

void device_server::abort(uint64_t reply_port, uint64_t id) {
    if (request *aborted = find(id); aborted != nullptr && aborted->pending) {
        aborted->pending = false;
        host_.post(aborted->reply_port, IOMSG_ABORTED, id);
    }
    host_.post(reply_port, IOMSG_ABORT_ACKNOWLEDGED, id);
}

}  // namespace hosted
