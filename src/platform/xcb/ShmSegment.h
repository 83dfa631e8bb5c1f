#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace qm::platform::x11 {

// A System V shared-memory segment attached both here and in the X server, so the server can
// write pixels straight into our memory (MIT-SHM).
class ShmSegment {
public:
    // Nothing when the server cannot share memory with us (another host, a container).
    static std::unique_ptr<ShmSegment> create(xcb_connection_t* c, std::size_t size);
    ~ShmSegment(); // detaches the segment; the connection must still be open
    ShmSegment(const ShmSegment&) = delete;
    ShmSegment& operator=(const ShmSegment&) = delete;

    xcb_shm_seg_t id() const { return m_seg; }
    std::uint8_t* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    ShmSegment(xcb_connection_t* c, std::uint8_t* data, std::size_t size)
        : m_c(c)
        , m_data(data)
        , m_size(size) {}

    xcb_connection_t* m_c;
    std::uint8_t* m_data;
    std::size_t m_size;
    xcb_shm_seg_t m_seg = 0;
};

} // namespace qm::platform::x11
