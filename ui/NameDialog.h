// The dialogs that ask for a name: "New Folder Name", "Edit Folder Name", "Edit Server Name".
#pragma once

#include <QDialog>

#include "ui/STORAGE.h"

class QLabel;
class QLineEdit;

// OK applies the name through the storage pane's rules; a refused name keeps the dialog open
// with the reason under the field.
class NameDialog : public QDialog {
    Q_OBJECT

public:
    NameDialog(STORAGE::HOST::NAMEDIALOG kind, const BARN::NODE *node, QWidget *parent = nullptr);
    static const char *title(STORAGE::HOST::NAMEDIALOG kind);

    void accept() override;

private:
    STORAGE::HOST::NAMEDIALOG fKind;
    bool fHasNode;
    BARN::NODE fNode{};
    QLineEdit *fName;
    QLabel *fProblem;
};
