// hosted/live/interrupt_registry.cpp - the interrupt lines, each with its handlers, its controller and its counts.
#include "hosted/live/interrupt_registry.h"

#include <algorithm>

#include "hosted/live/interrupts.h"
#include "hosted/live/scanner.h"

namespace hosted::live {

namespace {

class interrupt_directory : public numbered_directories {
public:
    explicit interrupt_directory(const file_roots &roots) : table_(roots) {}

protected:
    std::vector<uint64_t> numbers() override {
        std::vector<uint64_t> numbers;
        for (const interrupt_line &line : table_.lines()) numbers.push_back(line.number);
        return numbers;
    }

    node_pointer make(uint64_t number, bool) override {
        const auto lines = table_.lines();
        const auto same = [=](const interrupt_line &line) { return line.number == number; };
        const auto found = std::find_if(lines.begin(), lines.end(), same);
        if (found == lines.end()) return nullptr;
        auto made = std::make_unique<whole_directory>();
        if (found->is_handled()) made->add("name", text_key(found->handlers));
        if (!found->chip.empty()) made->add("chip", text_key(found->chip));
        scanner counts(found->counts);
        for (const uint64_t processor : table_.processors()) {
            if (const auto count = counts.decimal()) made->add("cpu" + std::to_string(processor), number_key(*count));
        }
        return made;
    }

private:
    interrupt_table table_;
};

}  // namespace

node_pointer make_interrupt_directory(const file_roots &roots) { return std::make_unique<interrupt_directory>(roots); }

}  // namespace hosted::live
