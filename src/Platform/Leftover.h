#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace veltry {

/// Something that this process makes in passing: a folder of temporary files, or one that is to be filled. It goes away
/// with this object, and also where a signal ends the process, if its handler calls removeAll().
class Leftover {
public:
    enum class What {
        everything, ///< a file, or a folder with all that is in it
        ifEmpty,    ///< a folder, unless something came into it
    };

    /// `path` is absolute; it need not be there yet.
    explicit Leftover(std::filesystem::path path, What what = What::everything);
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;
    ~Leftover();

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// From here on it stays.
    void keep() noexcept;

    /// Removes what every one of these objects stands for. May be called by a signal's handler: it takes no lock and no
    /// memory. A few hundred folders deep it gives up.
    static void removeAll() noexcept;

private:
    std::filesystem::path path_;
    std::size_t slot_; // in a table that removeAll() reads
    bool onlyIfEmpty_;
};

/// A new folder in the system's temporary one, for its owner alone (mode 0700), that goes away with all that is in it.
class ScratchFolder {
public:
    /// `name` begins its own. Throws SystemError.
    explicit ScratchFolder(std::string_view name);

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return leftover_.path(); }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path() / name; }

    /// Writes a file in it, for the owner alone too (mode 0600), and returns its path. Throws SystemError.
    std::filesystem::path write(std::string_view name, std::string_view bytes) const;

    /// `$TMPDIR` if it is an absolute path, else /tmp.
    [[nodiscard]] static std::filesystem::path above();

private:
    Leftover leftover_;
};

} // namespace veltry
