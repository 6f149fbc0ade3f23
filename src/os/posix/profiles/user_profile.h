// The built-in CreateProfile and DeleteProfileW of Linux, which the module port serves as
// "userenv.dll". A profile is a folder under the profile root, copied from a default profile
// template and registered by SID in the profile list (profile_list.h).
//
// Where the platform documents nothing, this is what they do:
// - Settings are read from the environment at every call (ProcessProfileSettings): the profile
//   root is TARNWICK_PROFILE_ROOT, created with its parents when missing. Without it the root is
//   "profiles" in a folder private to the user who runs the tool: "/run/tarnwick" for root (a
//   memory file system on most systems, which suits profiles that live for one migration),
//   else "$XDG_RUNTIME_DIR/tarnwick", else "$TMPDIR/tarnwick-<uid>" (/tmp when TMPDIR is unset
//   or empty). CreateProfile makes that folder with mode 0700 and uses it only while it is a
//   folder (not a link) of the user's own that no one else may write to, else it fails with
//   HRESULT of ERROR_ACCESS_DENIED (0x80070005): profiles are made and deleted there with the
//   rights of the tool, so a shared folder such as /tmp must not let others place registrations
//   or links in them. The template is TARNWICK_DEFAULT_PROFILE,
//   else the folder "default-profile" beside the running executable (where the build puts and
//   installs it). Both may be Linux paths or Windows-form paths ("Z:\...", UNC through the share
//   map); a relative root is taken from the current folder.
// - CreateProfile checks, in this order: sid, userName and profilePath not null, else E_INVALIDARG;
//   userName a valid Windows user name (not empty, not only dots and blanks, none of
//   " / \ [ ] : ; | = , + * ? < > or control characters), else E_INVALIDARG; sid a valid SID
//   string, else HRESULT of ERROR_INVALID_SID (0x80070539); the profile root can be mapped and
//   created, else the HRESULT of that error; the SID has no profile yet, else HRESULT of
//   ERROR_ALREADY_EXISTS (0x800700B7), the documented result, with the buffer left as it was;
//   the template is a folder, else HRESULT of ERROR_PATH_NOT_FOUND (0x80070003).
// - The folder name is chosen as Windows chooses it: the user name; when a file or folder of that
//   name exists in the root (compared ignoring case), "<name>.<computer name>" (the NetBIOS-style
//   name of computer_name.h: upper case, as Windows shows it); then "<name>.<computer name>.000",
//   ".001", ... up to ".999"; when all are taken, HRESULT of ERROR_FILE_EXISTS (0x80070050).
// - A buffer too small for the path and its terminating zero gives HRESULT of
//   ERROR_INSUFFICIENT_BUFFER (0x8007007A), the code a string copy into the caller's buffer
//   gives, and nothing is created (the size is checked before the folder is made).
// - A failing copy of the template removes the new folder again and gives the HRESULT of the
//   copy's Win32 error; a failed call leaves nothing behind.
// - Registrations belong to the process that made them (profile_list.h): CreateProfile first
//   removes every registration whose process has ended (killed, or ended with its profile still
//   there, as a failed migration leaves it) with its folder, so no registration outlives its
//   process; on Windows such a profile stays until it is removed. The registration is then made
//   atomically before the folder, so that of two processes creating a profile for one SID at once
//   exactly one succeeds and the other gets ERROR_ALREADY_EXISTS without touching anything of the
//   first's. A process killed between making the folder and recording it in its registration
//   leaves that empty folder (not a registration); later profiles then take the next name.
// - On success the buffer holds the profile folder's Windows-form path ("Z:\tmp\...").
// - The profile's files keep the owner the process gives them: the caller (the default-profile
//   copy of the migration) sets the owners it wants on its own copy.
// - DeleteProfileW: sid null gives ERROR_INVALID_PARAMETER, an invalid SID ERROR_INVALID_SID; a
//   computer name other than null, "", this computer's name or "\\" and this computer's name
//   gives ERROR_BAD_NETPATH (53): there is no other computer to reach. A SID without a profile
//   gives ERROR_FILE_NOT_FOUND (2), as the missing registry entry does on Windows. A profilePath
//   that names another folder than the registered one (compared ignoring case in Windows form)
//   gives ERROR_INVALID_PARAMETER and nothing is removed; null or "" takes the registered one.
//   The folder tree is removed when it is still there (a missing folder is fine: the caller
//   usually deleted it first); a folder that cannot be removed gives that error and keeps the
//   registration, so that the call can be repeated. Then the registration is removed and this
//   process lets go of it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/hresult.h"
#include "base/win32_error.h"
#include "hive/offreg_api.h"

namespace tw::posix {

inline constexpr const char* kProfileRootVariable = "TARNWICK_PROFILE_ROOT";
inline constexpr const char* kDefaultProfileVariable = "TARNWICK_DEFAULT_PROFILE";
// The template's folder name beside the executable.
inline constexpr const char* kTemplateFolderName = "default-profile";

// Where profiles go and what they are copied from. Paths as given: Linux or Windows form.
struct ProfileSettings {
  std::wstring root;
  // The folder that holds the default root and must be private to the user (empty when the root
  // was configured).
  std::wstring privateFolder;
  std::wstring templateFolder;
  // The suffix of unique folder names (ComputerName() in the process).
  std::wstring computerName;
};

// The settings the environment gives now (see above).
ProfileSettings ProcessProfileSettings();

// The folder name CreateProfile tries at the given attempt: 0 the user name, 1 with the computer
// name, 2 to 1001 with ".000" to ".999" after that; "" beyond.
std::wstring ProfileFolderCandidate(std::wstring_view userName, std::wstring_view computerName,
                                    int attempt);

// CreateProfile over explicit settings; the result as the platform's.
[[nodiscard]] HResult CreateUserProfile(const ProfileSettings& settings, const wchar_t* sid,
                                        const wchar_t* userName, wchar_t* profilePath,
                                        std::uint32_t cchProfilePath);

// DeleteProfileW over explicit settings: kSuccess, or the error the platform leaves in
// GetLastError() when it returns FALSE.
[[nodiscard]] err::Win32Error DeleteUserProfile(const ProfileSettings& settings, const wchar_t* sid,
                                                const wchar_t* profilePath,
                                                const wchar_t* computerName);

// The folder (Windows form) of the profile registered for sid that is still there, or empty when
// the SID has none (read only: nothing is created, locked or removed).
std::wstring RegisteredProfileOf(const ProfileSettings& settings, const wchar_t* sid);

// The functions as "userenv.dll" exports them, over ProcessProfileSettings(). DeleteProfileW
// returns TRUE (1) or FALSE (0) and on failure sets the thread's last error (last_error.h);
// CreateProfile returns its HRESULT as the bare 32-bit integer of the C function.
std::int32_t TW_OR_CALL BuiltInCreateProfile(const wchar_t* sid, const wchar_t* userName,
                                             wchar_t* profilePath, hive::DWORD cchProfilePath);
std::int32_t TW_OR_CALL BuiltInDeleteProfileW(const wchar_t* sid, const wchar_t* profilePath,
                                              const wchar_t* computerName);

}  // namespace tw::posix
