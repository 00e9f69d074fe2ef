// The window-manager hints Qt does not offer for a floating panel on X11:
// shown on every workspace (sticky). Elsewhere (Wayland, offscreen) nothing
// is done: a Wayland client cannot ask for this at all.
#pragma once

class QWindow;

namespace X11WindowHints {

// Before the window is first mapped: asks to be placed on all workspaces.
void requestAllWorkspacesBeforeMap(QWindow& window);
// After every show: asks the running window manager to keep the mapped window sticky.
void requestSticky(QWindow& window);

} // namespace X11WindowHints
