// Paged lists of named records (stored programs, global waypoints): the
// request's "page_num" (from 1), "page_size" and optional "vague_search"
// (kept: the records whose name contains it), and the reply's page.
#pragma once

#include "sim/json.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct page_request {
    int num = 1;
    int size = 1;
    std::optional<std::string> search;
};

// Nothing for a page number or size below 1, a missing one, or a search that
// is not text.
inline std::optional<page_request> read_page_request(const cJSON *request) {
    const auto num = json_int(request, "page_num");
    const auto size = json_int(request, "page_size");
    const auto search = json_string(request, "vague_search");
    const bool search_bad = cJSON_GetObjectItemCaseSensitive(request, "vague_search") && !search;
    if (!num || !size || *num < 1 || *size < 1 || search_bad) return std::nullopt;
    return page_request{*num, *size, search};
}

// Pages are cut short rather than overflow the client's 10240-byte reply
// buffer; the cut leaves room for the reply's other keys.
inline constexpr std::size_t k_max_list_text = 9800;

// Adds "page_num", "page_size", "total_size" (the matching records),
// "vague_search" when given, and "list": the page's records, each an object
// filled by add_keys(object, record).
template <typename Record, typename AddKeys>
void add_page(cJSON *reply, const page_request &page, const std::vector<Record> &records,
              AddKeys add_keys) {
    std::vector<const Record *> matching;
    for (const Record &r : records)
        if (!page.search || r.name.find(*page.search) != std::string::npos) matching.push_back(&r);
    cJSON_AddNumberToObject(reply, "page_num", page.num);
    cJSON_AddNumberToObject(reply, "page_size", page.size);
    cJSON_AddNumberToObject(reply, "total_size", static_cast<double>(matching.size()));
    if (page.search) cJSON_AddStringToObject(reply, "vague_search", page.search->c_str());
    cJSON *list = cJSON_AddArrayToObject(reply, "list");
    const std::size_t first =
        static_cast<std::size_t>(page.num - 1) * static_cast<std::size_t>(page.size);
    std::size_t text = json_print(reply).size();
    for (std::size_t i = first; i < matching.size() && i < first + page.size; ++i) {
        json_ptr item(cJSON_CreateObject());
        add_keys(item.get(), *matching[i]);
        text += json_print(item.get()).size() + 1;
        if (text > k_max_list_text) break;
        cJSON_AddItemToArray(list, item.release());
    }
}

} // namespace sim
