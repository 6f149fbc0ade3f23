#include "config/configuration_loader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/hresult_error.h"
#include "base/wide_string.h"
#include "config/filters.h"
#include "migration/run_mode.h"

namespace tw {

namespace {

// The child element `name` of `parent`, or null when there is none (or the lookup fails).
std::unique_ptr<XmlElement> Child(XmlElement& parent, std::wstring_view name) {
  std::unique_ptr<XmlElement> child;
  if (parent.SelectChild(name, child) != hr::kOk) return nullptr;
  return child;
}

// The element's text; a failure to read it is raised.
std::wstring TextOf(XmlElement& element) {
  std::wstring text;
  const HResult result = element.GetText(text);
  if (Failed(result)) ThrowHResult(result);
  return text;
}

// The text of the child `name` of `parent`, or nullopt when there is no such child.
std::optional<std::wstring> ChildText(XmlElement& parent, std::wstring_view name) {
  const std::unique_ptr<XmlElement> child = Child(parent, name);
  if (!child) return std::nullopt;
  return TextOf(*child);
}

// The attribute as the unchecked integer conversion reads it: 0 when absent or not numeric;
// nullopt only when reading the attribute failed.
std::optional<std::int32_t> UncheckedInt32Attribute(XmlElement& element, std::wstring_view name) {
  std::optional<std::int32_t> value;
  if (Failed(element.GetInt32Attribute(name, value))) return std::nullopt;
  return value.value_or(0);
}

bool EqualsNoCaseCrt(std::wstring_view a, std::wstring_view b) {
  return CompareNoCaseCrt(a, b) == 0;
}

void ReadSource(MigrationSettings& settings, XmlElement& source) {
  if (auto path = ChildText(source, L"profilepath")) settings.sourcePath = *path;
  for (const NamedRunMode& named : kNamedRunModes) {
    const std::optional<std::wstring> text = ChildText(source, named.configurationElement);
    if (text && EqualsNoCaseCrt(*text, L"true")) {
      settings.sourceVersion = named.mode.sourceVersion;
      settings.targetVersion = named.mode.targetVersion;
    }
  }
}

void ReadMigration(MigrationSettings& settings, XmlElement& migration) {
  if (const std::unique_ptr<XmlElement> profile = Child(migration, L"profile")) {
    if (auto include = ChildText(*profile, L"includefolders")) {
      settings.folderMask = ParseFolderFilter(settings, *include);
    }
    if (auto exclude = ChildText(*profile, L"excludefolders")) {
      settings.folderMask &= ~ParseFolderFilter(settings, *exclude);
    }
  }
  if (const std::unique_ptr<XmlElement> registry = Child(migration, L"registry")) {
    if (auto include = ChildText(*registry, L"includekeys")) {
      settings.registryMask = ParseRegistryFilter(settings, *include);
    }
    if (auto exclude = ChildText(*registry, L"excludekeys")) {
      settings.registryMask &= ~ParseRegistryFilter(settings, *exclude);
    }
    const std::optional<std::int32_t> disabled = UncheckedInt32Attribute(*registry, L"disabled");
    if (disabled && *disabled != 0) settings.registryMask = kMaskOff;
  }
}

std::int32_t ConflictPolicyOf(std::wstring_view text) {
  if (EqualsNoCaseCrt(text, L"V1Profile")) return kConflictV1Profile;
  if (EqualsNoCaseCrt(text, L"V2Profile")) return kConflictV2Profile;
  if (EqualsNoCaseCrt(text, L"MostRecent")) return kConflictMostRecent;
  return kConflictSaveCopy;
}

}  // namespace

[[nodiscard]] HResult LoadConfiguration(MigrationSettings& settings, std::wstring_view path,
                                        XmlDocument& document) {
  HResult result = document.Create();
  if (Failed(result)) return result;
  result = document.Load(path);
  if (Failed(result)) return result;
  std::unique_ptr<XmlElement> root;
  result = document.GetDocumentElement(root);
  if (result != hr::kOk || !root) return result;

  if (const std::optional<std::int32_t> takeOwnership =
          UncheckedInt32Attribute(*root, L"takeownership")) {
    settings.takeOwnership = *takeOwnership > 0;
  }
  if (const std::unique_ptr<XmlElement> source = Child(*root, L"source")) {
    ReadSource(settings, *source);
  }
  if (const std::unique_ptr<XmlElement> target = Child(*root, L"target")) {
    if (auto profilePath = ChildText(*target, L"profilepath")) settings.targetPath = *profilePath;
  }
  if (const std::unique_ptr<XmlElement> migration = Child(*root, L"migration")) {
    ReadMigration(settings, *migration);
  }
  if (const std::unique_ptr<XmlElement> merging = Child(*root, L"merging")) {
    if (auto conflict = ChildText(*merging, L"conflict")) {
      settings.conflictPolicy = ConflictPolicyOf(*conflict);
    }
  }
  return result;
}

[[nodiscard]] HResult LoadConfiguration(MigrationSettings& settings, std::wstring_view path) {
  const std::unique_ptr<XmlDocument> document = NewXmlDocument();
  return LoadConfiguration(settings, path, *document);
}

}  // namespace tw
