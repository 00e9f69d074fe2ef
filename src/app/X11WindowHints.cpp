#include "app/X11WindowHints.h"

#include <QGuiApplication>
#include <QWindow>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>

namespace {

xcb_connection_t* x11Connection()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    const xcb_intern_atom_cookie_t cookie =
        xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    if (!reply)
        return XCB_ATOM_NONE;
    const xcb_atom_t result = reply->atom;
    std::free(reply);
    return result;
}

// The desktop number meaning "every desktop" in the window-manager hints.
constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr uint32_t addState = 1;
constexpr uint32_t sourceIsApplication = 1;

} // namespace

namespace X11WindowHints {

void requestAllWorkspacesBeforeMap(QWindow& window)
{
    xcb_connection_t* connection = x11Connection();
    if (!connection)
        return;
    const auto id = static_cast<xcb_window_t>(window.winId());
    const xcb_atom_t desktop = atom(connection, "_NET_WM_DESKTOP");
    if (desktop == XCB_ATOM_NONE)
        return;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1,
                        &allDesktops);
    xcb_flush(connection);
}

void requestSticky(QWindow& window)
{
    xcb_connection_t* connection = x11Connection();
    if (!connection)
        return;
    const xcb_atom_t state = atom(connection, "_NET_WM_STATE");
    const xcb_atom_t sticky = atom(connection, "_NET_WM_STATE_STICKY");
    const xcb_atom_t desktop = atom(connection, "_NET_WM_DESKTOP");
    if (state == XCB_ATOM_NONE || sticky == XCB_ATOM_NONE)
        return;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const auto id = static_cast<xcb_window_t>(window.winId());
    const auto send = [&](xcb_atom_t type, uint32_t first, uint32_t second) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = id;
        event.type = type;
        event.data.data32[0] = first;
        event.data.data32[1] = second;
        event.data.data32[2] = 0;
        event.data.data32[3] = sourceIsApplication;
        xcb_send_event(connection, 0, root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
    };
    send(state, addState, sticky);
    if (desktop != XCB_ATOM_NONE)
        send(desktop, allDesktops, sourceIsApplication);
    xcb_flush(connection);
}

} // namespace X11WindowHints
