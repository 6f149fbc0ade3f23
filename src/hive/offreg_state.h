// Shared machinery of the offline-registry functions: the process-wide engine state (open hives
// and the handle table, under one lock: the platform's "simple locking"), handle lookup, path
// resolution and the buffer rules common to several functions. Internal to hive/.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/win32_error.h"
#include "hive/handle_table.h"
#include "hive/hive_model.h"
#include "hive/offreg_api.h"
#include "hive/security_memo.h"

namespace tw::hive::detail {

// Levels below the hive root that a key handle may name (the root is level 0): Windows' own
// limit of a registry tree. Walks over a crafted deeper hive end there.
constexpr std::size_t kMaxKeyDepth = 512;

struct Engine {
  std::mutex mutex;
  HandleTable handles;
  std::unordered_map<const Hive*, std::unique_ptr<Hive>> hives;
  SecurityMemo security;
};

Engine& GetEngine();

inline std::uintptr_t RawHandle(ORHKEY handle) { return reinterpret_cast<std::uintptr_t>(handle); }
inline ORHKEY ToOrHKey(std::uintptr_t raw) { return reinterpret_cast<ORHKEY>(raw); }
inline std::wstring_view View(PCWSTR text) { return text != nullptr ? text : L""; }

// Runs `body` under the engine lock; an allocation failure becomes ERROR_NOT_ENOUGH_MEMORY.
template <class Body>
DWORD Locked(Body body) {
  try {
    Engine& engine = GetEngine();
    std::lock_guard<std::mutex> lock(engine.mutex);
    return body(engine);
  } catch (const std::bad_alloc&) {
    return err::kNotEnoughMemory;
  } catch (...) {
    return err::kInvalidParameter;
  }
}

// The live entry of a handle: ERROR_INVALID_HANDLE for a dead one, ERROR_KEY_DELETED for a
// deleted key.
DWORD LookupKey(Engine& engine, ORHKEY handle, HandleEntry** entry);

// Follows a relative path of "\"-separated names below `from`. ERROR_BAD_PATHNAME for an empty
// component (a single trailing "\" is allowed), ERROR_FILE_NOT_FOUND for a missing key.
DWORD ResolvePath(Key* from, std::wstring_view path, Key** found);
// How many levels below its hive root `key` is (0 for the root); stops counting past kMaxKeyDepth.
std::size_t KeyDepth(const Key* key);
// Splits a path as ResolvePath does.
DWORD SplitPath(std::wstring_view path, std::vector<std::wstring_view>* parts);

// Copies `text` with a terminator when `*count` (characters, terminator included) allows;
// otherwise ERROR_MORE_DATA with the needed length (without terminator) in `*count`.
DWORD CopyName(std::wstring_view text, PWSTR buffer, PDWORD count);

void PutFileTime(std::uint64_t time, PFILETIME out);

// A new handle for the key (counted on the key); 0 when the table is full.
ORHKEY OpenHandle(Engine& engine, Hive* hive, Key* key, bool isRoot);

}  // namespace tw::hive::detail
