#include "tp/CmThreadSingleton.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace {

struct Shared {
    std::unique_ptr<CCmLoopThread> thread;
    int users = 0;
};

std::mutex g_mutex;
std::map<std::string, Shared>& Table()
{
    static auto* table = new std::map<std::string, Shared>();
    return *table;
}

}  // namespace

ACmThread* ACmThreadSingletonFactory::GetSingletonThread(const char* name)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    Shared& s = Table()[name ? name : ""];
    if (!s.thread) {
        s.thread = std::make_unique<CCmLoopThread>();
        if (s.thread->Create(name, TT_USER_DEFINE_BASE) != CM_OK) {
            s.thread.reset();
            return nullptr;
        }
    }
    ++s.users;
    return s.thread.get();
}

void ACmThreadSingletonFactory::ResleseSingletonThread(ACmThread* thread)
{
    std::unique_ptr<CCmLoopThread> ending;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        for (auto it = Table().begin(); it != Table().end(); ++it) {
            if (it->second.thread.get() != thread) continue;
            if (--it->second.users == 0) {
                ending = std::move(it->second.thread);
                Table().erase(it);
            }
            break;
        }
    }
    if (ending) ending->Stop();
}

int ACmThreadSingletonFactory::UserCount(const char* name)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = Table().find(name ? name : "");
    return it == Table().end() ? 0 : it->second.users;
}
