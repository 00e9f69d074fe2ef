// Which renderer the screens use: Qt's software scene graph on machines
// without a GPU, the default (OpenGL) everywhere else.
#pragma once

#include <QString>

namespace SceneGraphBackend {

// Without a GPU, OpenGL runs in software (Mesa llvmpipe): it repaints the
// whole window on every frame and holds about 100 MB more than Qt's software
// scene graph, which repaints only what changed. Call before the first window
// exists. An explicit QT_QUICK_BACKEND or QSG_RHI_BACKEND always wins.
// `renderNodeDirectory` is where the kernel lists GPU render nodes.
// True when the software scene graph was chosen.
bool chooseForThisMachine(const QString& renderNodeDirectory = QStringLiteral("/dev/dri"));

// True when that directory holds a render node ("renderD128", …).
bool hasRenderNode(const QString& renderNodeDirectory);

} // namespace SceneGraphBackend
