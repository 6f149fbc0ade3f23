// LoadConfiguration: fills the settings record from the optional XML configuration file.
#pragma once

#include <string_view>

#include "base/hresult.h"
#include "migration/migration_settings.h"
#include "ports/xml_document.h"

namespace tw {

// Reads the file at `path` through `document` (a new, not yet created document) into `settings`.
//
// Steps: create the document (its failure is returned), load the path (a failing result is
// returned), get the document element (anything but S_OK is returned as it is: S_FALSE for a
// file that did not parse, with nothing stored and nothing logged). Then, from the document
// element (whose own name is not checked), in this order; a missing element skips its item and
// leaves its fields alone:
//  1. attribute "takeownership": takeOwnership = the attribute as a 32-bit integer, above 0.
//     The conversion is not checked: an absent attribute, and a value that does not convert
//     ("true", "yes", "0x1", ""), count as 0 and clear the flag. If reading the attribute fails,
//     the flag is left alone.
//  2. "source": "profilepath" text -> sourcePath; then "migv2tov5", "migv2tov6", "migv5tov6",
//     "migv6tov6", in this order: a text equal to "true" without regard to case sets
//     (sourceVersion, targetVersion) to (2, 5), (2, 6), (5, 6), (6, 6); a later one wins.
//  3. "target": "profilepath" text -> targetPath.
//  4. "migration": under "profile", "includefolders" -> folderMask = the folder filter's bits,
//     then "excludefolders" -> folderMask &= ~bits; under "registry", "includekeys" ->
//     registryMask = the key filter's bits, "excludekeys" -> registryMask &= ~bits, then the
//     "disabled" attribute of "registry", converted as in step 1: non-zero sets registryMask to
//     0x80000000 (it wins over both lists).
//  5. "merging": "conflict" text without regard to case: "V1Profile" 1, "V2Profile" 2,
//     "MostRecent" 4, anything else (including "SaveCopy" and "") 8.
// Case-insensitive comparisons fold only A-Z and a-z, as _wcsicmp does in the "C" locale.
// A failure to read an element's text raises that result as an HResultError (never caught).
[[nodiscard]] HResult LoadConfiguration(MigrationSettings& settings, std::wstring_view path,
                                        XmlDocument& document);

// The same through the platform's real XML document (MSXML on Windows, pugixml on POSIX).
[[nodiscard]] HResult LoadConfiguration(MigrationSettings& settings, std::wstring_view path);

}  // namespace tw
