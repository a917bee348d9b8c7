// hosted/live/system_registry.h - the registry's directories hardware/ and kernel/ over the system's own files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "hosted/live/files.h"
#include "hosted/servers/registry_store.h"

namespace hosted::live {

struct registry_node;  // a key or directory

// The directories hardware/ and kernel/, by paths from the root. Everything in them is read-only: writing is refused
// with RESULT_NOT_PERMITTED.
class system_registry : public registry_store {
public:
    explicit system_registry(const file_roots &roots);
    ~system_registry() override;

    std::unique_ptr<registry_cursor> list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;

private:
    registry_node *find(std::string_view path);

    std::unique_ptr<registry_node> root_;
};

}  // namespace hosted::live
