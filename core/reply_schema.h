// Reply schemas: how the JSON of a reply fills a public record, stated as
// data (key, scale, array shape, list capacity, what a missing key costs),
// and the one reader that follows them. A family file describes each reply
// shape in a few rows; the reading, checking and logging live here once.
#pragma once

#include "core/command.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace reply {

// How a wire integer becomes a float member (integer members take it as it
// is, bytes and half-words its low bits).
using scale_tag = scale::unit;

// What the record's member at a field is.
enum class target : uint8_t { i32, u8, u16, f32, boolean, chars, pose };

enum class kind : uint8_t {
    number,   // one integer
    flag,     // one boolean
    text,     // a string, or the entry itself when the key is null
    numbers,  // an array of integers
    pose,     // six integers: x, y, z in micrometres, rx, ry, rz in milliradians
    verdict,  // a boolean that, when false, refuses the whole reply (1)
    list,     // an array of entries read by another schema, up to a capacity
    variant,  // more fields, chosen by what the record holds so far
    switches, // an object of booleans: each inner int32 takes 1 true, 0 false, -1 otherwise
    object,   // inner fields read inside the object under key, into the same record
};

// What a field's absence costs: required fails the read; optional skips a
// missing key but fails a wrong type; loose skips either.
enum class presence : uint8_t { required, optional, loose };

// Array counts: exactly the count; at least the count (the first count are
// read); up to the count (what is there, each element taken as a number
// whatever its type, the number read written to the counter).
enum class count_rule : uint8_t { exact, at_least, up_to };

// How a string fills a char array: padded copies at most `limit` characters
// and zero-pads to limit (a full name has no terminator; bytes past limit
// stay); cleared copies at most limit characters, terminated, and zeroes the
// rest of the array; terminated copies at most limit characters and a
// terminator, leaving the bytes after it.
enum class text_rule : uint8_t { padded, cleared, terminated };

// Member paths: where a field's value lives in a record, and its type.
namespace detail {

template <typename M> struct member;
template <typename C, typename T> struct member<T C::*> {
    using owner = C;
    using type = T;
};
template <auto M> using owner_of = typename member<decltype(M)>::owner;

template <typename T> decltype(auto) element(T &m, int index) {
    if constexpr (std::is_array_v<T> || std::is_pointer_v<T>)
        return m[index];
    else
        return (m);
}
template <typename T> T &walk(T &object) { return object; }
template <typename T, typename M, typename... Ms> auto &walk(T &object, M m, Ms... rest) {
    return walk(object.*m, rest...);
}
// The member reached through a path of members (element `index` of it when
// it is an array or a pointer).
template <auto First, auto... Rest> void *at(void *record, int index) {
    return &element(walk(*static_cast<owner_of<First> *>(record), First, Rest...), index);
}
template <auto First, auto... Rest> struct leaf_of {
    using type =
        std::remove_reference_t<decltype(walk(std::declval<owner_of<First> &>(), First, Rest...))>;
};
template <auto... Path> using leaf = typename leaf_of<Path...>::type;
// Element `index` is the index-th of the members named.
template <auto First, auto... Rest> void *one_of(void *record, int index) {
    auto *r = static_cast<owner_of<First> *>(record);
    void *members[] = {&(r->*First), &(r->*Rest)...};
    return members[index];
}

template <typename T> constexpr target target_of() {
    using E = std::remove_cv_t<std::remove_all_extents_t<std::remove_pointer_t<T>>>;
    if constexpr (std::is_same_v<E, char>)
        return target::chars;
    else if constexpr (std::is_same_v<E, float>)
        return target::f32;
    else if constexpr (std::is_same_v<E, bool>)
        return target::boolean;
    else if constexpr (std::is_same_v<E, uint8_t>)
        return target::u8;
    else if constexpr (std::is_same_v<E, uint16_t>)
        return target::u16;
    else if constexpr (std::is_same_v<E, ka_pose_t>)
        return target::pose;
    else {
        static_assert(std::is_same_v<E, int32_t>, "no reply target for this member type");
        return target::i32;
    }
}

} // namespace detail

struct schema;
using locator = void *(*)(void *record, int index);
using chooser = const schema *(*)(const void *record);

struct field {
    kind what;
    const char *key;
    locator at = nullptr; // null: checked, not kept
    target type = target::i32;
    scale_tag tag = scale_tag::whole;
    int count = 0;   // array entries (cmd::per_joint: the arm's DOF), text limit, list capacity
    size_t size = 0; // bytes of a char array member; bytes of a list entry
    presence need = presence::required;
    count_rule rule = count_rule::exact;
    text_rule text = text_rule::padded;
    bool non_negative = false;          // a negative wire integer fails the read
    const char *alt_key = nullptr;      // read under this key when `key` is missing
    const char *label = nullptr;        // the field's name in the schema's error line
    const char *shown = nullptr;        // info line after the read: (function, values...)
    const char *refusal = nullptr;      // verdict false: error line (function, key)
    locator counter = nullptr;          // int32 written with the entries read
    const schema *entries = nullptr;    // list entries
    const char *entry_label = nullptr;  // names a failed entry in the error line
    bool count_first = false;           // counter = min(entries, capacity) before reading them
    bool ends_at_null = false;          // a list of names ends at "NULL" or a non-string
    bool entry_atomic = false;          // a failing entry is left as it was
    bool entry_cleared = false;         // each entry is zeroed before it is read
    chooser choose = nullptr;           // variant
    locator sent = nullptr;             // the member a request sends under key, when not `at`
    std::span<const field> inside = {}; // switches, object
    const char *when = nullptr;         // object: read only when the reply has this key
    bool non_bool_false = false;        // flag, common path: a non-boolean reads false

  private:
    // Defined before its users: clang does not evaluate a member template
    // defined further down in a constant expression.
    template <typename T> constexpr field with(T field::*member, T value) const {
        field f = *this;
        f.*member = value;
        return f;
    }

  public:
    constexpr field optional() const { return with(&field::need, presence::optional); }
    constexpr field loose() const { return with(&field::need, presence::loose); }
    constexpr field at_least() const { return with(&field::rule, count_rule::at_least); }
    constexpr field positive() const { return with(&field::non_negative, true); }
    constexpr field or_key(const char *k) const { return with(&field::alt_key, k); }
    constexpr field named(const char *l) const { return with(&field::label, l); }
    constexpr field show(const char *line) const { return with(&field::shown, line); }
    constexpr field count_before() const { return with(&field::count_first, true); }
    constexpr field until_null() const { return with(&field::ends_at_null, true); }
    constexpr field atomic() const { return with(&field::entry_atomic, true); }
    constexpr field cleared() const { return with(&field::entry_cleared, true); }
    constexpr field entry_named(const char *l) const { return with(&field::entry_label, l); }
    constexpr field or_false() const { return with(&field::non_bool_false, true); }
    template <auto... Path> constexpr field sent_from() const {
        return with(&field::sent, static_cast<locator>(detail::at<Path...>));
    }
};

struct schema {
    std::span<const field> fields;
    int fail = -3;                     // what a failed read gives
    const char *unparsable = nullptr;  // error line when the reply is not JSON: (function)
    const char *field_error = nullptr; // error line when a field fails: (function, label)
    // Checked as common_json_parse checks (its lines, exact array counts,
    // keys inside "arm_state" / "all_state"), and written only once every
    // field is read.
    bool common = false;
};
// A schema read as common_json_parse reads, failing with -3.
constexpr schema common(std::span<const field> fields) {
    return {fields, -3, nullptr, nullptr, true};
}

// Reads the reply text into record. 0, 1 for a verdict false, or the
// schema's fail code. dof sets the count of per-joint arrays.
int read(const schema &s, const char *function, const char *text, void *record, int dof = 0);
template <typename Record>
int read(const schema &s, const char *function, const char *text, Record &record, int dof = 0) {
    return read(s, function, text, static_cast<void *>(&record), dof);
}

// The request a schema's number fields describe, from a record: each key
// with its member in wire units (the scale tag reversed). The count written.
int request(const schema &s, const void *record, ka_request_field *out);

// A caller's (items, count) pair that a list field fills.
template <typename Entry> struct page {
    Entry *items;
    int *count;
};

// ------------------------------------------------------- record queries

// A query whose reply fills a record: the command's row (request keys with
// their scale tags, reply name, time-out) and the schema of its reply, so
// that a family states both and calls one thing. Per-joint arrays in the
// schema take the arm's DOF once the reply is in (another DOF than 6 or 7
// logs the disconnected line and gives -1).
struct record_query {
    cmd::query_command command;
    const schema *reply;
    // The caller's record is written only once the whole reply was read and
    // `then` accepted it; otherwise the schema's own rules decide.
    bool whole = false;
    // A reply the schema refuses gives 1 when this key is false in it (how
    // the controller says "no such item"), else -3.
    const char *refused_key = nullptr;
    // Judges the reply before the record is read; a non-zero status ends the call.
    int (*first)(const char *function, const char *text) = nullptr;
    // Reads more of the same reply into the record, or keeps its copy of it;
    // a non-zero status is the call's.
    int (*then)(const char *function, ka_robot_handle *handle, const char *text,
                void *record) = nullptr;
    const char *label = nullptr;        // names the reader's lines when not the command's function
    int reply_size = reply_buffer_size; // at most twice that
    // The handle is looked up before anything else; an unknown one logs
    // "[%s] handle is NULL!" naming this and gives -1.
    const char *lookup = nullptr;
    bool dof_first = false; // a DOF other than 6 or 7 gives -1 (disconnected) before the send
    const schema *(*reply_for)(ka_robot_handle *handle) = nullptr; // in place of reply

    // The request values in the command's args order; a null record or
    // value gives -1 with nothing sent.
    template <typename Record, typename... V>
    int operator()(ka_robot_handle *handle, Record *record, V... v) const;
    // A list reply into the caller's (items, count); -1 when either is null.
    template <typename Entry> int list(ka_robot_handle *handle, Entry *items, int *count) const {
        page<Entry> p{items, count};
        return items && count ? (*this)(handle, &p) : -1;
    }
};
// 0, the exchange's code, -1 for a lost DOF, or what the reading gives.
int run(const record_query &q, ka_robot_handle *handle, void *record,
        std::span<const ka_request_field> request);

template <typename Record, typename... V>
int record_query::operator()(ka_robot_handle *handle, Record *record, V... v) const {
    if (lookup && !registry_find_logged(lookup, handle)) return -1;
    if (!record || (cmd::is_null(v) || ...)) return -1;
    cmd::request r(command.function, handle);
    int i = 0;
    (r.add(command.args[i++], v), ...);
    if (r.status) return r.status;
    if constexpr (!std::is_array_v<Record>) {
        if (whole) {
            Record copy = *record;
            const int status = run(*this, handle, &copy, r.fields());
            if (status == 0) *record = copy;
            return status;
        }
    }
    return run(*this, handle, record, r.fields());
}

// The handle's arm record keeps value (a copy of an array) at Member, under
// its cache lock; false for an unknown handle.
template <auto Member, typename T> bool keep(ka_robot_handle *handle, const T &value) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return false;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    if constexpr (std::is_array_v<T>)
        std::copy(std::begin(value), std::end(value), std::begin((*arm).*Member));
    else
        (*arm).*Member = value;
    return true;
}

// The request's page and search text (null: empty) into a record whose reply
// does not echo them; the text is cut to fit and terminated.
template <typename Record>
void echo_page(void *record, int page_num, int page_size, const char *search) {
    auto &r = *static_cast<Record *>(record);
    r.page_num = page_num;
    r.page_size = page_size;
    std::strncpy(r.vague_search, search ? search : "", sizeof r.vague_search - 1);
    r.vague_search[sizeof r.vague_search - 1] = '\0';
}

// A page of a stored list read into a record by `reply`.
struct page_record_query {
    cmd::page_query command;
    const schema *reply;
    bool dof_first = false; // the arm's DOF, checked before the request, sizes per-joint entries
    void (*echo)(void *record, int page_num, int page_size, const char *search) = nullptr;
    const schema *unsearched = nullptr; // read instead of reply when no search text was sent

    // -1 for a null record, with nothing sent.
    template <typename Record>
    int operator()(ka_robot_handle *handle, int page_num, int page_size, const char *search,
                   Record *record) const;
};
// 0, the exchange's code, -1 for a lost DOF, or what the reading gives.
int run(const page_record_query &q, ka_robot_handle *handle, int page_num, int page_size,
        const char *search, void *record);
template <typename Record>
int page_record_query::operator()(ka_robot_handle *handle, int page_num, int page_size,
                                  const char *search, Record *record) const {
    return record ? run(*this, handle, page_num, page_size, search, record) : -1;
}

// ------------------------------------------------------ describing fields

template <auto... Path> constexpr field number(const char *key, scale_tag tag = scale_tag::whole) {
    return {kind::number, key, detail::at<Path...>, detail::target_of<detail::leaf<Path...>>(),
            tag};
}
template <auto... Path> constexpr field flag(const char *key) {
    return {kind::flag, key, detail::at<Path...>, detail::target_of<detail::leaf<Path...>>()};
}
// At most `limit` characters into a char array member.
template <auto... Path>
constexpr field text(const char *key, int limit, text_rule rule = text_rule::padded) {
    static_assert(detail::target_of<detail::leaf<Path...>>() == target::chars);
    field f{kind::text, key, detail::at<Path...>, target::chars};
    f.count = limit;
    f.size = sizeof(detail::leaf<Path...>);
    f.text = rule;
    return f;
}
// A string that must be there but is not kept.
constexpr field checked_text(const char *key) { return {kind::text, key}; }
// count integers into an array member.
template <auto... Path>
constexpr field numbers(const char *key, int count, scale_tag tag = scale_tag::whole) {
    field f{kind::numbers, key, detail::at<Path...>, detail::target_of<detail::leaf<Path...>>(),
            tag};
    f.count = count;
    return f;
}
// Up to capacity integers into an array member, their number into Counter
// when one is named.
template <auto Array, auto... Counter>
constexpr field numbers_up_to(const char *key, int capacity) {
    field f = numbers<Array>(key, capacity);
    f.rule = count_rule::up_to;
    if constexpr (sizeof...(Counter) == 1) f.counter = detail::at<Counter...>;
    return f;
}
// One integer into each member named, in order.
template <auto... Members> constexpr field numbers_into(const char *key, scale_tag tag) {
    field f{kind::numbers, key, detail::one_of<Members...>, target::f32, tag};
    f.count = sizeof...(Members);
    return f;
}
template <auto... Path> constexpr field pose(const char *key) {
    static_assert(detail::target_of<detail::leaf<Path...>>() == target::pose);
    field f{kind::pose, key, detail::at<Path...>, target::pose};
    f.count = 6;
    return f;
}
// The record itself as the value: one T (a flag for bool), or count of
// them when the record is an array.
template <typename T> void *element_of(void *record, int index) {
    return static_cast<T *>(record) + index;
}
template <typename T> constexpr field value(const char *key) {
    constexpr target type = detail::target_of<T>();
    return {type == target::boolean ? kind::flag : kind::number, key, element_of<T>, type};
}
template <typename T>
constexpr field values(const char *key, int count, scale_tag tag = scale_tag::whole) {
    field f{kind::numbers, key, element_of<T>, detail::target_of<T>(), tag};
    f.count = count;
    return f;
}
// Missing is no verdict; false gives 1 with the refusal line.
constexpr field verdict(const char *key, const char *refusal) {
    field f{kind::verdict, key};
    f.need = presence::optional;
    f.refusal = refusal;
    return f;
}
// Entries of the Items array (member array or pointer), each read by
// `entries`, at most capacity of them; Counter (when given) takes their
// number.
template <auto Items, auto... Counter>
constexpr field list(const char *key, const schema &entries, int capacity) {
    using entry = std::remove_extent_t<std::remove_pointer_t<detail::leaf<Items>>>;
    field f{kind::list, key, detail::at<Items>};
    f.count = capacity;
    f.size = sizeof(entry);
    f.entries = &entries;
    if constexpr (sizeof...(Counter) == 1) f.counter = detail::at<Counter...>;
    return f;
}
// A list field that fills a page<Entry>.
template <typename Entry>
constexpr field page_list(const char *key, const schema &entries, int capacity) {
    return list<&page<Entry>::items, &page<Entry>::count>(key, entries, capacity);
}
// Int32 members of the record at Path (inside: number fields on it), one
// per key of the object under key.
template <auto... Path> constexpr field switches(const char *key, std::span<const field> inside) {
    field f{kind::switches, key, detail::at<Path...>};
    f.inside = inside;
    return f;
}
// With when, read only when the reply has that key; a missing object fails
// its first inner field.
constexpr field object(const char *key, std::span<const field> inside, const char *when = nullptr) {
    field f{kind::object, key};
    f.inside = inside;
    f.when = when;
    return f;
}
constexpr field variant(chooser choose) {
    field f{kind::variant, nullptr};
    f.choose = choose;
    return f;
}

} // namespace reply
