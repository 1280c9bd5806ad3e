// The application's observers of one screen-share line, told of the capturer's state and events.
//
// Threads: registration on the application's thread, events on engine threads; m_mutex guards the
// list, and observers are called outside it, on a copy, so that one may unregister from inside.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "mediasession/ZynScreenShare.h"

namespace zyn {

class CScreenShareObserver {
public:
    // ZYN_E_POINTER for null, ZYN_E_DUPLICATE for one already there.
    ZynResult AddObserver(IZynScreenShareObserver* observer);
    // ZYN_E_NOTFOUND for one not there.
    ZynResult RemoveObserver(IZynScreenShareObserver* observer);
    void ForEach(const std::function<void(IZynScreenShareObserver&)>& call);

private:
    std::mutex m_mutex;
    std::vector<IZynScreenShareObserver*> m_observers;  // guarded by m_mutex; the application's
};

}  // namespace zyn
