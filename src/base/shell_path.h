// Portable versions of the Windows shell path functions the tool uses, with the Windows rules:
// backslash separators, drive roots ("C:\"), UNC roots ("\\server\share") and the MAX_PATH limit.
// A std::wstring stands for the MAX_PATH buffer the Windows function would fill: a result that
// would not fit in kMaxPath characters including its terminator fails the way the Windows
// function fails. Forward slashes are ordinary characters here, as they are to these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tw {

// Characters in a path buffer, terminator included.
constexpr std::size_t kMaxPath = 260;

// dest = dir and file joined with one backslash, canonicalised as Windows does ("." and ".."
// elements removed). A rooted file part ("C:\x", "\x", "\\srv\x") replaces or keeps only the
// root of dir. Returns false (dest emptied) where the Windows function returns NULL: the result
// would not fit MAX_PATH, both parts are empty, or a part is itself MAX_PATH long or longer.
bool PathCombineW(std::wstring& dest, std::wstring_view dir, std::wstring_view file);

// path = path and more joined with one backslash (the leading backslashes of a "\"-led more are
// skipped, so it is appended below path), then canonicalised as PathCombineW does; a UNC or
// drive-rooted more replaces path. Returns false with path unchanged when the result would not
// fit MAX_PATH.
bool PathAppendW(std::wstring& path, std::wstring_view more);

// Adds a backslash unless path is empty or already ends in one. Returns false (path unchanged)
// when there is no room for the backslash and the terminator within MAX_PATH.
bool PathAddBackslashW(std::wstring& path);

// Removes the last element and its backslash, keeping a root whole ("C:\a" -> "C:\",
// "\\srv\share\x" -> "\\srv\share"). Returns true when something was removed.
bool PathRemoveFileSpecW(std::wstring& path);

// Keeps only the file name (the last element); a path that ends in a backslash keeps its last
// folder name with that backslash ("C:\a\b\" -> "b\").
void PathStripPathW(std::wstring& path);

// Removes the extension found by PathFindExtensionW, dot included.
void PathRemoveExtensionW(std::wstring& path);

// Index of the "." that starts the extension of the last element, or path.size() when the last
// element has none. An extension is the text after the last "." of the last element and holds no
// space.
std::size_t PathFindExtensionW(std::wstring_view path);

// True for a path that starts with two backslashes ("\\srv\share", "\\?\UNC\srv\share"); forward
// slashes do not count.
bool PathIsUNCW(std::wstring_view path);

// Cuts path down to its root ("C:\", "\", "\\srv\share"). Returns true when path is now a root;
// false for a path without one ("a\b" becomes empty, "C:" stays). As the classic shell function,
// it does not know the "\\?\" prefix: "\\?\UNC\srv\share\x" gives "\\?\UNC".
bool PathStripToRootW(std::wstring& path);

}  // namespace tw
