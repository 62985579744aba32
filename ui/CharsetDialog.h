// The character set dialogs: one choice among the character sets the program converts.
#pragma once

#include <QDialog>
#include <cstdint>

class QComboBox;

class CharsetDialog : public QDialog {
    Q_OBJECT

public:
    CharsetDialog(const char *title, uint32_t current, QWidget *parent = nullptr);
    // The chosen set (an IMsg::Charset).
    uint32_t charset() const;

private:
    QComboBox *fChoice;
};
