// The character set dialogs.
#include "ui/CharsetDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QVBoxLayout>

#include "message/IMsg.h"

CharsetDialog::CharsetDialog(const char *title, uint32_t current, QWidget *parent)
    : QDialog(parent), fChoice(new QComboBox) {
    setWindowTitle(title);
    for (const STR::INDEX *row = IMsg::indexCharset; row->text != nullptr; ++row) {
        if (!IMsg::CharsetIsValid(IMsg::Charset(row->value)))
            continue;
        fChoice->addItem(row->text, QVariant::fromValue(qlonglong(row->value)));
        if (uint32_t(row->value) == current)
            fChoice->setCurrentIndex(fChoice->count() - 1);
    }
    auto *form = new QFormLayout;
    form->addRow("Character set:", fChoice);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

uint32_t CharsetDialog::charset() const {
    return uint32_t(fChoice->currentData().toLongLong());
}
