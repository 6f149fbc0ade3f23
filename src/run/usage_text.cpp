// The usage text that a help request prints to the console (never to the log), byte for byte:
// each line ends in "\r\n", the second and the next-to-last lines are empty, and the double
// blanks after "target profile." and "profile(s)." belong to it. It names neither "/p:", nor
// "/V6TOV6", nor the help options, deliberately.
#include "run/usage_text.h"

namespace tw {

const wchar_t* const kUsageText =
    L"tarnwick.exe [/s:<source path <version code>>] [/t:<target path>] [/r-] [/f-] "
    L"[/takeownership] [<config file>]\r\n"
    L"\r\n"
    L"   /s:<source path>  The path of the source V1 profile to be migrated.\r\n"
    L"                     Use the wildcard '*' to indicate that all child folders\r\n"
    L"                     should be migrated.\r\n"
    L"   /s:<source path> <version code>\r\n"
    L"            The path of the source profile to be migrated to target version.\r\n"
    L"            Use the wildcard '*.<profile version suffix>', for example '*.v2'\r\n"
    L"            to indicate that all child V2 should be migrated.\r\n"
    L"            Available <version code> without \"\": \"V2toV5\", \"V2toV6\", \"V5toV6\"\r\n"
    L"   /t:<target path>  The path of the target profile.  A folder with the same\r\n"
    L"                     name as the source profile folder appended by .<profile version>\r\n"
    L"                     will be created under this path. If no target path is specified,\r\n"
    L"                     then the <profile version> profile folder will be created as a "
    L"sibling\r\n"
    L"                     of the source V1 profile folder.\r\n"
    L"   /r-               Disable registry migration.\r\n"
    L"   /f-               Disable file and folder migration.\r\n"
    L"   /takeownership    Allow tarnwick.exe to temporarily take ownership of the source\r\n"
    L"                     profile(s).  If this flag is not specified, and the current user "
    L"does\r\n"
    L"                     not have full control over the source profile(s), then migration will "
    L"fail.\r\n"
    L"   <config file>     The name of the migration configuration file.\r\n"
    L"\r\n"
    L"These arguments override the corresponding settings specified in the configuration file.\r\n";

}  // namespace tw
