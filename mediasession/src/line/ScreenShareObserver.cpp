#include "line/ScreenShareObserver.h"

#include <algorithm>

namespace zyn {

ZynResult CScreenShareObserver::AddObserver(IZynScreenShareObserver* observer)
{
    if (!observer) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_observers.begin(), m_observers.end(), observer) != m_observers.end()) return ZYN_E_DUPLICATE;
    m_observers.push_back(observer);
    return ZYN_S_OK;
}

ZynResult CScreenShareObserver::RemoveObserver(IZynScreenShareObserver* observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find(m_observers.begin(), m_observers.end(), observer);
    if (it == m_observers.end()) return ZYN_E_NOTFOUND;
    m_observers.erase(it);
    return ZYN_S_OK;
}

void CScreenShareObserver::ForEach(const std::function<void(IZynScreenShareObserver&)>& call)
{
    std::vector<IZynScreenShareObserver*> observers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        observers = m_observers;
    }
    for (IZynScreenShareObserver* o : observers) call(*o);
}

}  // namespace zyn
