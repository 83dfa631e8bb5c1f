#include "platform/xcb/ShmSegment.h"

#include "platform/xcb/XcbHandles.h"

#include <sys/ipc.h>
#include <sys/shm.h>

namespace qm::platform::x11 {

std::unique_ptr<ShmSegment> ShmSegment::create(xcb_connection_t* c, std::size_t size) {
    const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (id < 0)
        return nullptr;
    void* address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return nullptr;
    }
    std::unique_ptr<ShmSegment> segment(
        new ShmSegment(c, static_cast<std::uint8_t*>(address), size));
    segment->m_seg = xcb_generate_id(c);
    const bool attached = check(c, xcb_shm_attach_checked(c, segment->m_seg, id, 0));
    // Marked for removal now that both sides hold it: it goes away with the last detach,
    // even if this process dies.
    shmctl(id, IPC_RMID, nullptr);
    if (!attached) {
        segment->m_seg = 0;
        return nullptr;
    }
    return segment;
}

ShmSegment::~ShmSegment() {
    if (m_seg)
        xcb_shm_detach(m_c, m_seg);
    shmdt(m_data);
}

} // namespace qm::platform::x11
