#include "faults/FaultList.h"

#include <errno.h>

#include <array>
#include <utility>

namespace sorvane::test {
namespace {

using enum Call;
using enum Cost;

// The errors stand in the manual pages of the calls. Where a page names one that Linux gives only
// for a mistake of the program, such as EBADF, it is left out.
// clang-format off
constexpr PossibleFault kFaults[] = {
    {accept,         EMFILE,       nothing,       true},
    {accept,         ENOMEM,       nothing,       true},
    {accept,         ECONNABORTED, nothing,       true},
    {accept,         EINTR,        nothing,       true},
    {accept,         EAGAIN,       nothing,       false},
    {accept,         ENFILE,       nothing,       false},
    {accept,         ENOBUFS,      nothing,       false},
    {accept,         EPROTO,       nothing,       false},
    {accept,         EPERM,        nothing,       false},
    {accept,         ENETDOWN,     nothing,       false},
    {receive,        ECONNRESET,   oneConnection, true},
    {receive,        EINTR,        nothing,       true},
    {receive,        EAGAIN,       nothing,       true},
    {receive,        kShort,       nothing,       true},
    {receive,        ETIMEDOUT,    oneConnection, false},
    {receive,        EHOSTUNREACH, oneConnection, false},
    {receive,        ENOMEM,       oneConnection, false},
    {send,           EPIPE,        oneConnection, true},
    {send,           EINTR,        nothing,       true},
    {send,           EAGAIN,       nothing,       true},
    {send,           kShort,       nothing,       true},
    {send,           ECONNRESET,   oneConnection, false},
    {send,           ETIMEDOUT,    oneConnection, false},
    {send,           ENOBUFS,      oneConnection, false},
    {send,           ENOMEM,       oneConnection, false},
    {sendGathered,   ECONNRESET,   oneConnection, true},
    {sendGathered,   EINTR,        nothing,       true},
    {sendGathered,   EAGAIN,       nothing,       true},
    {sendGathered,   kShort,       nothing,       true},
    {sendGathered,   EPIPE,        oneConnection, false},
    {sendGathered,   ENOBUFS,      oneConnection, false},
    {sendGathered,   ENOMEM,       oneConnection, false},
    {wait,           EINTR,        nothing,       true},
    {watch,          ENOSPC,       oneConnection, true},
    {watch,          ENOMEM,       oneConnection, false},
    {watchOtherwise, ENOMEM,       oneConnection, true},
    {unwatch,        ENOMEM,       oneConnection, true},
    {wake,           EINTR,        nothing,       true},
    {takeWakeUp,     EINTR,        nothing,       true},
    {takeWakeUp,     EAGAIN,       nothing,       false},
    {peerName,       ENOTCONN,     oneConnection, true},
    {peerName,       ENOBUFS,      oneConnection, false},
    {shutDown,       ENOTCONN,     nothing,       true},
    {stat,           EIO,          theStoring,    true},
    {stat,           ENOMEM,       theStoring,    false},
    {stat,           EACCES,       theStoring,    false},
    {linkStatus,     EIO,          theStoring,    true},
    {linkStatus,     ENOMEM,       theStoring,    false},
    {linkStatus,     EACCES,       theStoring,    false},
    {open,           EMFILE,       theStoring,    true},
    {open,           EROFS,        theStoring,    true},
    {open,           EINTR,        nothing,       true},
    {open,           ENFILE,       theStoring,    false},
    {open,           EACCES,       theStoring,    false},
    {open,           EDQUOT,       theStoring,    false},
    {open,           EIO,          theStoring,    false},
    {open,           ENOMEM,       theStoring,    false},
    {open,           ENOSPC,       theStoring,    false},
    {openStream,     EMFILE,       nothing,       true},
    {openStream,     EACCES,       nothing,       false},
    {openStream,     EISDIR,       nothing,       false},
    {openStream,     ENOSPC,       nothing,       false},
    {statusOfOpen,   EIO,          theStoring,    true},
    {statusOfOpen,   ENOMEM,       theStoring,    false},
    {lock,           ENOLCK,       nothing,       true},
    {lock,           EINTR,        nothing,       true},
    {write,          ENOSPC,       theStoring,    true},
    {write,          EINTR,        nothing,       true},
    {write,          kShort,       nothing,       true},
    {write,          EIO,          theStoring,    false},
    {write,          EDQUOT,       theStoring,    false},
    {write,          EFBIG,        theStoring,    false},
    {setMode,        EIO,          theStoring,    true},
    {setMode,        EPERM,        theStoring,    false},
    {setMode,        EROFS,        theStoring,    false},
    {flush,          EIO,          theStoring,    true},
    {flush,          EINTR,        nothing,       true},
    {flush,          EINVAL,       theStoring,    false},
    {flush,          ENOSPC,       theStoring,    false},
    {flush,          EDQUOT,       theStoring,    false},
    {rename,         EIO,          theStoring,    true},
    {rename,         EACCES,       theStoring,    false},
    {rename,         ENOSPC,       theStoring,    false},
    {rename,         EROFS,        theStoring,    false},
    {largeMemory,    ENOMEM,       process,       true},
};
// clang-format on

constexpr std::array<std::string_view, kCalls> kNames = {
    "Accept",         "Receive",    "Send",  "SendGathered", "Wait",         "Watch",
    "WatchOtherwise", "Unwatch",    "Wake",  "TakeWakeUp",   "PeerName",     "ShutDown",
    "Stat",           "LinkStatus", "Open",  "OpenStream",   "StatusOfOpen", "Lock",
    "Write",          "SetMode",    "Flush", "Rename",       "LargeMemory"};

}  // namespace

std::span<const PossibleFault> possibleFaults() { return kFaults; }

std::string_view nameOf(Call call) { return kNames[static_cast<std::size_t>(call)]; }

}  // namespace sorvane::test
