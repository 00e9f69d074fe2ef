// One entry of a detail tab's list (an action item, a message, a speaker), framed.
import QtQuick
import QtQuick.Layouts

Rectangle {
    default property alias content: cardColumn.data
    Layout.fillWidth: true
    implicitHeight: cardColumn.implicitHeight + Theme.padding
    radius: Theme.radius
    color: Theme.surface
    border.color: Theme.border

    ColumnLayout {
        id: cardColumn
        anchors.fill: parent
        anchors.margins: Theme.padding / 2
        spacing: 4
    }
}
