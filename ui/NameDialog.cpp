// The dialogs that ask for a folder or server name.
#include "ui/NameDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

NameDialog::NameDialog(STORAGE::HOST::NAMEDIALOG kind, const BARN::NODE *node, QWidget *parent)
    : QDialog(parent), fKind(kind), fHasNode(node != nullptr), fName(new QLineEdit),
      fProblem(new QLabel) {
    if (node != nullptr)
        fNode = *node;
    setWindowTitle(title(kind));
    auto *form = new QFormLayout;
    bool server = kind == STORAGE::HOST::kServerEdit;
    form->addRow(server ? "Server name:" : "Folder name:", fName);
    if (kind != STORAGE::HOST::kFolderNew && node != nullptr)
        fName->setText(QString::fromUtf8(node->name));
    fName->setMaxLength(int(BARN::kNameMax));
    fName->selectAll();
    fProblem->setWordWrap(true);
    fProblem->setStyleSheet("color: #b00020");
    fProblem->hide();
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &NameDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &NameDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(fProblem);
    layout->addWidget(buttons);
    setMinimumWidth(340);
}

const char *NameDialog::title(STORAGE::HOST::NAMEDIALOG kind) {
    switch (kind) {
    case STORAGE::HOST::kFolderNew:
        return "New Folder Name";
    case STORAGE::HOST::kFolderEdit:
        return "Edit Folder Name";
    case STORAGE::HOST::kServerEdit:
        return "Edit Server Name";
    }
    return "";
}

void NameDialog::accept() {
    std::string refusal = STORAGE::nameApply(fKind, fHasNode ? &fNode : nullptr,
                                             fName->text().trimmed().toUtf8().constData());
    if (!refusal.empty()) {
        fProblem->setText(QString::fromStdString(refusal));
        fProblem->show();
        fName->setFocus();
        return;
    }
    QDialog::accept();
}
