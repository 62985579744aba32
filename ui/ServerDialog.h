// The server account dialog: a new account, or the properties of one.
#pragma once

#include <QDialog>
#include <map>
#include <string>

#include "storage/BARN.h"

class QLabel;
class QWidget;

// Built from the server form's field table. OK checks every value; the first problem shows
// under the fields and nothing is written. A new account is created, then the user is asked
// whether to download its list of newsgroups.
class ServerDialog : public QDialog {
    Q_OBJECT

public:
    ServerDialog(const BARN::NODE &server, bool create, QWidget *parent = nullptr);

    void accept() override;
    // The field's widget, for the tests (a QLineEdit, QCheckBox or QComboBox).
    QWidget *field(const char *key) const;

private:
    BARN::NODE fServer;
    bool fCreate;
    std::map<std::string, QWidget *> fFields;
    QLabel *fProblem;

    std::map<std::string, std::string> _values() const;
};
