// Finds items by objectName below an item, popups and loaders included.
import QtQuick

QtObject {
    function find(item, name) {
        if (!item)
            return null
        if (item.objectName === name)
            return item
        const lists = [item.children, item.contentChildren, item.data]
        for (const list of lists) {
            if (list === undefined || list === null)
                continue
            for (let i = 0; i < list.length; ++i) {
                if (list[i] === item)
                    continue
                const found = find(list[i], name)
                if (found)
                    return found
            }
        }
        if (item.contentItem && item.contentItem !== item) {
            const found = find(item.contentItem, name)
            if (found)
                return found
        }
        return null
    }
    function shown(item, name) {
        const target = find(item, name)
        if (!target)
            return false
        for (let at = target; at; at = at.parent)
            if (!at.visible)
                return false
        return true
    }
}
