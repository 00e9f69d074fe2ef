// A heading inside a detail tab ("Key points", "Speakers").
import QtQuick
import QtQuick.Controls

Label {
    font.pixelSize: Theme.fontBody
    font.weight: Font.DemiBold
    color: Theme.text
    Accessible.role: Accessible.Heading
}
