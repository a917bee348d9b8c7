// tests/colp/colp_fixture.h - what the tests of the column printer share.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "colp/colp.h"

using table_owner = std::unique_ptr<colp_table, decltype(&colp_delete)>;

inline table_owner new_table() { return {colp_new(), colp_delete}; }

// What colp_print writes; where its code is not the one expected, that.
inline std::string printed(colp_table *table, int parts, int expected = COLP_SUCCESS) {
    char *text = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&text, &length);
    const int code = colp_print(table, parts, stream);
    std::fclose(stream);
    std::string output(text, length);
    std::free(text);
    return code == expected ? output : "colp_print: " + std::to_string(code);
}
