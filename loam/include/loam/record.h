// loam/record.h - zRecord, a tree of named, typed variables, and zRecordIterator over its children.
//
// Threads: not locked; any number of threads may read one record that nobody changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include "loam/export.h"
#include "loam/types.h"

namespace loam {
class record_key;
struct record_access;
struct record_state;
struct record_value;
}  // namespace loam

// A variable is addressed by its name, byte by byte, or by a 64-bit identifier; the two never meet.
// Variables keep the order in which they were first set. A child belongs to its parent and ends
// with it, however deep the tree is.
//
// Reading never changes a record. A variable of another type is converted: numbers into each other
// where the value fits (a fraction is cut off), text that is a decimal number, with nothing around
// it but white space, into that number, bool to 1 and 0 or "true" and "false", "true" and "false"
// in any case and numbers to bool. Whatever cannot be converted or is not there reads as the
// default that the caller passes. Bytes convert to nothing.
//
// Setters create or replace; the position of a replaced variable stays. They return false, and do
// nothing, when the name is null. A null text or null bytes are stored as empty. Flags are not
// looked at; pass 0. Nothing throws but the allocation of memory, and then the record is what it
// was before; AddChild says so by its status instead. Removing and emptying take none.
class LOAM_API zRecord {
public:
    // As a position for AddChild: behind the last child.
    static constexpr std::int32_t k_at_end = 0x7fffffff;

    zRecord();
    // Records that are made together, as the elements of an XML document are, share their memory.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    // For a derived class that is aligned to more than the usual.
    static void* operator new(std::size_t size, std::align_val_t alignment) {
        return ::operator new(size, alignment);
    }
    static void* operator new(std::size_t size, std::align_val_t alignment,
                              const std::nothrow_t& none) noexcept {
        return ::operator new(size, alignment, none);
    }
    static void operator delete(void* record) noexcept;
    static void operator delete(void* record, const std::nothrow_t&) noexcept;
    static void operator delete(void*, void*) noexcept {}
    static void operator delete(void* record, std::align_val_t alignment) noexcept {
        ::operator delete(record, alignment);
    }
    static void operator delete(void* record, std::align_val_t alignment,
                                const std::nothrow_t& none) noexcept {
        ::operator delete(record, alignment, none);
    }
    // The copy of a tree has the same variables and children; all of its records are plain
    // zRecords.
    zRecord(const zRecord& other);
    zRecord& operator=(const zRecord& other);
    // Deletes the children. A record that is deleted while it has a parent leaves it first.
    virtual ~zRecord();

    bool AsBool(const char* name, bool otherwise) const;
    bool AsBool(std::uint64_t id, bool otherwise) const;
    std::int32_t AsInt32(const char* name, std::int32_t otherwise) const;
    std::int32_t AsInt32(std::uint64_t id, std::int32_t otherwise) const;
    std::int64_t AsInt64(const char* name, std::int64_t otherwise) const;
    std::int64_t AsInt64(std::uint64_t id, std::int64_t otherwise) const;
    double AsDouble(const char* name, double otherwise) const;
    double AsDouble(std::uint64_t id, double otherwise) const;
    std::string AsString(const char* name, const std::string& otherwise) const;
    std::string AsString(std::uint64_t id, const std::string& otherwise) const;
    // A text is returned in place, valid until the record changes; a number or bool is written into
    // the caller's `scratch`, where null means that it cannot be had.
    const char* AsCString(const char* name, const char* otherwise, char (*scratch)[64]) const;
    const char* AsCString(std::uint64_t id, const char* otherwise, char (*scratch)[64]) const;
    // A text in place with its length in bytes, NULs included; null and 0 where there is none.
    // Nothing is converted. `length` may be null.
    const char* AsText(const char* name, std::uint32_t* length) const;
    const char* AsText(std::uint64_t id, std::uint32_t* length) const;
    // The same for bytes; a text is returned as the bytes that it is made of.
    const void* AsBytes(const char* name, std::uint32_t* length) const;
    const void* AsBytes(std::uint64_t id, std::uint32_t* length) const;

    bool SetCString(const char* name, const char* value, char flag = 0);
    bool SetCString(std::uint64_t id, const char* value, char flag = 0);
    bool SetString(const char* name, const std::string& value);
    bool SetString(std::uint64_t id, const std::string& value);
    // Exactly `length` bytes; all ones (-1) means up to the NUL.
    bool SetText(const char* name, const char* value, std::uint32_t length, char flag = 0);
    bool SetText(std::uint64_t id, const char* value, std::uint32_t length, char flag = 0);
    bool SetBytes(const char* name, const void* value, std::uint32_t length, char flag = 0);
    bool SetBytes(std::uint64_t id, const void* value, std::uint32_t length, char flag = 0);
    bool SetInt32(const char* name, std::int32_t value, char flag = 0);
    bool SetInt32(std::uint64_t id, std::int32_t value, char flag = 0);
    bool SetInt64(const char* name, std::int64_t value, char flag = 0);
    bool SetInt64(std::uint64_t id, std::int64_t value, char flag = 0);
    bool SetBool(const char* name, bool value, char flag = 0);
    bool SetBool(std::uint64_t id, bool value, char flag = 0);
    bool SetDouble(const char* name, double value, char flag = 0);
    bool SetDouble(std::uint64_t id, double value, char flag = 0);

    bool Has(const char* name) const;
    bool Has(std::uint64_t id) const;
    // Whether there was such a variable.
    bool Remove(const char* name);
    virtual bool RemoveID(std::uint64_t id);

    std::uint32_t VariableCount() const;
    // Never null: "" for a variable that has an identifier, and past the last one. Valid until the
    // record changes.
    const char* VariableName(std::uint32_t index) const;
    // 0 for a variable that has a name, and past the last one.
    std::uint64_t VariableID(std::uint32_t index) const;

    // Inserts `child` so that it becomes number `position`; a position past the last child appends.
    // The child belongs to this record from then on. Returns -1, and leaves the child with the
    // caller, when it is null, this record, a record that this one stands below, or the child of
    // any record, and when the position is negative.
    zStatus AddChild(zRecord* child, std::int32_t position);
    // Null when out of range. The record stays the owner.
    zRecord* Child(std::uint32_t index) const;
    std::uint32_t ChildCount() const;
    // Takes a child out of the tree and hands it to the caller; null when out of range.
    zRecord* TakeChild(std::uint32_t index);
    zRecord* Parent() const;

    // Removes all variables and deletes all children.
    void MakeEmpty();

protected:
    // Called before a variable changes, on the thread that changes it. `id` is its identifier, or 0
    // when it has a name; `exists` says whether it is there already; `removing` whether it is
    // about to go. Does nothing here. The children's changes are their own.
    virtual void variable_changing(std::uint64_t id, bool exists, bool removing);

private:
    friend struct loam::record_access;

    bool set(const loam::record_key& key, loam::record_value value);
    bool remove(const loam::record_key& key);
    void take_variables(zRecord& other);
    void delete_children();

    // A loam::record_state, in place: a tree has many records, and each would take twice as many
    // blocks of memory.
    alignas(std::uint64_t) unsigned char m_state[7 * sizeof(std::uint64_t)];
};

// Visits the children of a record in order. The record must outlive the iterator; a change of its
// children moves the visit, and never leads past the last one.
class LOAM_API zRecordIterator {
public:
    // Stands at the first child.
    explicit zRecordIterator(zRecord& record);
    // Goes back to the first child.
    void Init();
    bool Done() const;
    void Next();
    // The child that the visit has come to, null when it is done.
    zRecord* operator()() const;

private:
    zRecord& m_record;
    std::uint32_t m_index = 0;
};
