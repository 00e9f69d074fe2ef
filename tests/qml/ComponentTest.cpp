// Runs every tst_*.qml beside this file: the screens' components on their own,
// fed with plain stand-ins for the services they bind to.
#include <QtQuickTest>

QUICK_TEST_MAIN(quillmoss_components)
