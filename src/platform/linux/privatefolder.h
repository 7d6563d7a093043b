#pragma once
// The folder for this program's sockets (the single-instance socket): a place only this user can
// reach, so that no other user can put a socket there first or listen in on ours.
#include <QString>

namespace velmora::platform {

struct PrivateFolder {
    QString path;    // the folder; empty when refused
    QString problem; // empty when usable; else one paragraph for the user: which folder, why not, what to do
    bool usable() const { return problem.isEmpty(); }
};

// "<XDG_RUNTIME_DIR>/velmora" when the user's runtime folder is a folder of this user's own with
// no access for anybody else; otherwise "<temporary folder>/velmora-<uid>" (see privateFolderIn()),
// and when something that is not this user's private folder already sits there (another user
// made it first), a folder "<temporary folder>/velmora-<uid>.XXXXXX" of this user's own, the same
// for every copy of the program this user starts.
PrivateFolder privateRuntimeFolder();

// The folder name inside base, made with mode 0700 when missing. An existing one is used only
// when it is a real folder (not a link) that belongs to this user and that neither group nor
// others may use; anything else is refused, never repaired or replaced, since another user may
// have made it to catch the program's connections.
PrivateFolder privateFolderIn(const QString& base, const QString& name);

// Why path is not a private folder of this user, or empty when it is one: a folder itself (not a
// symbolic link to one), owned by this user, that neither group nor others may use. The reason
// names the path.
QString privateFolderProblem(const QString& path);

} // namespace velmora::platform
