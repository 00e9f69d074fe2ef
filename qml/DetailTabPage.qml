// A tab of the call's details: its content, in a column that scrolls on its own.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ScrollView {
    id: page
    default property alias content: column.data
    clip: true
    contentWidth: availableWidth

    ColumnLayout {
        id: column
        width: page.availableWidth
        spacing: Theme.spacing * 1.5
    }
}
