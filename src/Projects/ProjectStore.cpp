#include "Projects/ProjectStore.h"

#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/StandardFolders.h"
#include "Platform/SystemError.h"
#include "Platform/SystemLog.h"
#include "Projects/Database.h"
#include "Projects/Migrations.h"

#include <fmt/format.h>

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <type_traits>

namespace veltry {

namespace {

using Path = std::filesystem::path;

Path appending(const Path& file, std::string_view suffix)
{
    return Path(file.native() + std::string(suffix));
}

Path madeAbsolute(const Path& file)
{
    std::error_code error;
    Path result = std::filesystem::absolute(file, error);
    if (error)
        throw SystemError("could not find the path " + file.string(), error.value());
    return result;
}

/// The WAL as it stood before an opening, for as long as the opening lasts: one that fails may leave less behind.
class WALSnapshot {
public:
    explicit WALSnapshot(const Path& store) : copy_(appending(store, "-wal.before-open"))
    {
        Files::remove(copy_); // from an opening that crashed
        const Path wal = appending(store, "-wal");
        std::error_code unknown;
        const std::uintmax_t size = std::filesystem::file_size(wal, unknown);
        if (unknown || size == 0)
            return;
        try {
            Files::copy(wal, copy_);
        } catch (const SystemError&) {
            Files::remove(copy_); // half of it, perhaps
            throw;
        }
    }

    WALSnapshot(const WALSnapshot&) = delete;
    WALSnapshot& operator=(const WALSnapshot&) = delete;

    ~WALSnapshot() { Files::remove(copy_); }

    const Path& copy() const { return copy_; }

private:
    Path copy_;
};

/// A look takes no lock where nobody has the file open. If somebody opens, writes and closes it meanwhile, what was
/// read proves nothing, and a sound store must not be taken for a damaged one.
template <typename Body>
std::invoke_result_t<const Body&, Connection&> look(const Path& file, const Body& body)
{
    std::error_code unknown;
    for (int again = 3;; --again) {
        const auto before = std::filesystem::last_write_time(file, unknown);
        const auto isFinal = [&] { return again == 0 || std::filesystem::last_write_time(file, unknown) == before; };
        try {
            auto result = Database(file, Database::LookOnly()).read(body);
            if (isFinal())
                return result;
        } catch (const DatabaseError& failure) {
            if (!failure.isDamage() || isFinal())
                throw;
        }
    }
}

/// Looks at the file as the crash left it: to open one that is damaged may change it and its WAL. Throws what is wrong.
void refuseDamaged(const Path& store)
{
    if (!Files::exists(store))
        return;
    const Path shared = appending(store, "-shm");
    const bool wasShared = Files::exists(shared);
    try {
        static_cast<void>(ProjectStore::isForeign(store));
    } catch (const DatabaseError& failure) {
        if (!failure.isDamage())
            return;
        if (!wasShared) // made by the look
            Files::remove(shared);
        throw;
    }
}

/// Never onto a file that is there: two stores set aside in one second are both worth keeping.
void moveTo(const Path& target, const Path& source)
{
    if (Files::exists(target))
        throw SystemError("could not move " + source.string() + " to " + target.string(), EEXIST);
    Files::move(source, target);
}

/// Moves the store's files to a name that is returned.
Path moveAside(const Path& store, const WALSnapshot& snapshot)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const Path aside =
        appending(store, fmt::format(".unreadable-{}", std::chrono::duration_cast<std::chrono::seconds>(now).count()));
    moveTo(aside, store);
    for (const std::string_view suffix : {"-wal", "-shm"}) {
        Path source = appending(store, suffix);
        if (suffix == "-wal" && Files::exists(snapshot.copy())) {
            Files::remove(source);
            source = snapshot.copy();
        }
        if (Files::exists(source))
            moveTo(appending(aside, suffix), source);
    }
    return aside;
}

} // namespace

std::string ProjectStoreError::description() const
{
    switch (kind) {
    case Kind::noFolders:
        return "A project needs at least one folder.";
    case Kind::notFound:
        return "The record is not in the store.";
    case Kind::madeByNewerVeltry:
        return "The store was made by a newer version of Veltry.";
    }
    return {};
}

std::string ExperimentStoreError::description() const
{
    return "The store has no experiment " + id + ".";
}

std::filesystem::path ProjectStore::defaultPath()
{
    if (const char* chosen = std::getenv("VELTRY_DATABASE_PATH"))
        return chosen;
    return StandardFolders::applicationSupport() / "Harrowick Veltry" / "veltry.sqlite";
}

ProjectStore::ProjectStore(const Path& file) : path_(madeAbsolute(file))
{
    Files::createPrivateFolders(path_.parent_path());
    database_ = std::make_unique<Database>(path_);
    Migrations::refuseNewer(*database_);
    Migrations::apply(*database_);
}

ProjectStore::~ProjectStore() = default;

ProjectStore::Opened ProjectStore::openOrReplace(const Path& file)
{
    const Path store = madeAbsolute(file);
    Files::createPrivateFolders(store.parent_path());
    // Who comes second waits here, and then sees what the first has left.
    const FileLock lock = FileLock::takeFolder(store.parent_path());
    const WALSnapshot snapshot(store);
    try {
        refuseDamaged(store);
        return {.store = std::make_shared<ProjectStore>(store), .movedAside = std::nullopt};
    } catch (const DatabaseError& failure) {
        if (!failure.isDamage())
            throw;
        SystemLog::write(
            SystemLog::Level::error, "store", "the database is unreadable, moving it aside: " + failure.description());
    }
    Path aside = moveAside(store, snapshot);
    return {.store = std::make_shared<ProjectStore>(store), .movedAside = std::move(aside)};
}

bool ProjectStore::isForeign(const Path& file)
{
    return look(file, [](Connection& connection) {
        const std::vector<std::string> tables = connection.texts(
            "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'");
        return !tables.empty() && std::ranges::find(tables, "grdb_migrations") == tables.end();
    });
}

std::vector<std::string> ProjectStore::integrityProblems(const Path& file)
{
    return look(file, [](Connection& connection) {
        std::vector<std::string> lines = connection.texts("PRAGMA integrity_check");
        if (lines.size() == 1 && lines.front() == "ok")
            lines.clear();
        for (Statement row = connection.query("PRAGMA foreign_key_check"); row.step();)
            lines.push_back(
                fmt::format("a row of {} refers to a row of {} that isn't there", row.string(0), row.string(2)));
        return lines;
    });
}

std::int64_t ProjectStore::dataVersion() const
{
    return database_->read([](Connection& connection) {
        Statement row = connection.query("PRAGMA data_version");
        row.step();
        return row.integer(0);
    });
}

} // namespace veltry
