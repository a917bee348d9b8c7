// common/taskobjects.cpp - resolving the tasks, walking their objects, printing one table each.
#include "common/taskobjects.h"

#include <cstdio>

#include "colp/colp.h"
#include "platform/kernel.h"

namespace {
int list_task(const sb_taskobjects &what, colp_table *table, uint64_t iterator, uint64_t task) {
    if (what.begin_task != nullptr) what.begin_task(what.context, task);
    colp_removerows(table);
    if (_SL_BeginIterator(iterator, task, what.selection) != RESULT_SUCCESS)
        return sb_fail(what.line, SB_FAILED, "failed to start iteration");
    while (_SL_StepIterator(iterator) == RESULT_SUCCESS) {
        colp_beginrow(table);
        what.add_row(what.context, table, iterator);
        colp_endrow(table);
    }
    if (sb_parse_colp_sort(table, what.sort) != 0) return SB_FAILED;
    colp_print(table, COLP_PRINT_TITLE | COLP_PRINT_TITLE_RULE | COLP_PRINT_ROWS, stdout);
    return SB_DONE;
}

int list_tasks(const sb_taskobjects &what, colp_table *table, uint64_t iterator) {
    int status = SB_DONE;
    bool first = true;
    for (const char *operand : what.tasks) {
        uint64_t task = 0;
        if (!sb_resolvetask(operand, what.operands, &task)) {
            status = sb_fail(what.line, SB_FAILED, "process \"%s\" not found.", operand);
            continue;
        }
        if (!first) std::putchar('\n');
        first = false;
        const auto low_half = static_cast<unsigned>(task);  // all that a heading shows
        if (what.operands == sb_taskoperand::name)
            std::printf("Task 0x%X (%s) %s:\n", low_half, operand, what.plural);
        else if (what.tasks.size() > 1)
            std::printf("Task 0x%X %s:\n", low_half, what.plural);
        if (list_task(what, table, iterator, task) != SB_DONE) status = SB_FAILED;
    }
    return status;
}
}  // namespace

int sb_listtaskobjects(const sb_taskobjects &what) {
    const sb_table table = sb_newtable(what.line.command, what.style, what.columns);
    if (!table) return SB_FAILED;
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT) return sb_fail(what.line, SB_NO_ITERATOR, "failed to create iterator");
    const int status = list_tasks(what, table.get(), iterator);
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return status;
}
