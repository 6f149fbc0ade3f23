// Placeholder translation unit for a library folder that has no sources yet.
namespace tw {
int EmptyLibraryAnchor() { return 0; }
}  // namespace tw
