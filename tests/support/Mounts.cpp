#include "tests/support/Mounts.h"

#include <sys/mount.h>

#include <utility>

namespace toverin::testing {

ScopedMount ScopedMount::Tmpfs(const std::string& folder, const std::string& size) {
    ScopedMount m(folder);
    const std::string options = "size=" + size + ",mode=0777";
    m.mounted_ = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
    return m;
}

ScopedMount ScopedMount::ReadOnly(const std::string& folder) {
    ScopedMount m(folder);
    if (::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0) return m;
    m.mounted_ = true;
    if (::mount(nullptr, folder.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        m.Unmount();
    return m;
}

ScopedMount::ScopedMount(ScopedMount&& other) noexcept
    : folder_(std::move(other.folder_)), mounted_(std::exchange(other.mounted_, false)) {}

ScopedMount::~ScopedMount() {
    Unmount();
}

void ScopedMount::Unmount() {
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
    mounted_ = false;
}

}  // namespace toverin::testing
