// Folders that misbehave on demand, made by the system itself: a small tmpfs that fills up, a
// read-only file system. Mounting needs the right to (root, as in the test sandbox); where the
// system refuses, ok() is false and the test says it was skipped.
#pragma once

#include <string>

namespace toverin::testing {

class ScopedMount {
  public:
    // A tmpfs of `size` ("2m") on `folder`, which must exist.
    static ScopedMount Tmpfs(const std::string& folder, const std::string& size);
    // `folder` itself, made read-only (a read-only bind mount over it).
    static ScopedMount ReadOnly(const std::string& folder);
    ~ScopedMount();
    ScopedMount(ScopedMount&& other) noexcept;
    ScopedMount(const ScopedMount&) = delete;
    ScopedMount& operator=(const ScopedMount&) = delete;
    ScopedMount& operator=(ScopedMount&&) = delete;

    bool ok() const { return mounted_; }
    // Takes the mount away now (the folder is as it was).
    void Unmount();

  private:
    explicit ScopedMount(std::string folder) : folder_(std::move(folder)) {}
    std::string folder_;
    bool mounted_ = false;
};

}  // namespace toverin::testing
