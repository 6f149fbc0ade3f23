#include "migration/special_folder_table.h"

namespace tw {

SpecialFolderRow g_specialFolderTable[kSpecialFolderCount + 1] = {
    {0x00001u, L"AppData", {}, {}},       {0x00002u, L"Cache", {}, {}},
    {0x00004u, L"Cookies", {}, {}},       {0x00008u, L"Desktop", {}, {}},
    {0x00010u, L"Favorites", {}, {}},     {0x00020u, L"History", {}, {}},
    {0x00040u, L"Local AppData", {}, {}}, {0x00080u, L"My Music", {}, {}},
    {0x00100u, L"My Pictures", {}, {}},   {0x00200u, L"My Video", {}, {}},
    {0x00400u, L"NetHood", {}, {}},       {0x00800u, L"Personal", {}, {}},
    {0x01000u, L"PrintHood", {}, {}},     {0x02000u, L"Programs", {}, {}},
    {0x04000u, L"Recent", {}, {}},        {0x08000u, L"SendTo", {}, {}},
    {0x10000u, L"Start Menu", {}, {}},    {0x20000u, L"Startup", {}, {}},
    {0x40000u, L"Templates", {}, {}},     {0u, L"", {}, {}},
};

namespace {

template <class Row>
std::span<Row> Before(std::span<Row> table) {
  std::size_t count = 0;
  while (count < table.size() && table[count].bit != 0) ++count;
  return table.first(count);
}

}  // namespace

std::span<SpecialFolderRow> RowsBeforeTerminator(std::span<SpecialFolderRow> table) {
  return Before(table);
}

std::span<const SpecialFolderRow> RowsBeforeTerminator(std::span<const SpecialFolderRow> table) {
  return Before(table);
}

std::span<SpecialFolderRow> SpecialFolders() {
  return RowsBeforeTerminator(std::span<SpecialFolderRow>(g_specialFolderTable));
}

}  // namespace tw
