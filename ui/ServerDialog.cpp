// The server account dialog.
#include "ui/ServerDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

#include "base/ALERT.h"
#include "base/TextFormat.h"
#include "net/NEWS.h"
#include "ui/SERVERFORM.h"

ServerDialog::ServerDialog(const BARN::NODE &server, bool create, QWidget *parent)
    : QDialog(parent), fServer(server), fCreate(create), fProblem(new QLabel) {
    setWindowTitle(create ? "Create Server Account" : "Server Properties");
    SERVERFORM::VALUES values = SERVERFORM::fill(server);
    auto *form = new QFormLayout;
    for (const SERVERFORM::FIELD &field : SERVERFORM::fields()) {
        const QString value = QString::fromStdString(values[field.key]);
        QWidget *widget = nullptr;
        if (field.kind == SERVERFORM::kCheck) {
            auto *box = new QCheckBox(field.label);
            box->setChecked(value == SERVERFORM::kYes);
            form->addRow(QString(), box);
            widget = box;
        } else if (field.kind == SERVERFORM::kChoice) {
            auto *choice = new QComboBox;
            for (const STR::INDEX *row = field.choices; row->text != nullptr; ++row)
                choice->addItem(row->text);
            choice->setCurrentText(value);
            form->addRow(QString(field.label) + ":", choice);
            widget = choice;
        } else {
            auto *line = new QLineEdit(value);
            if (field.maxLength > 0)
                line->setMaxLength(int(field.maxLength));
            if (field.kind == SERVERFORM::kPassword)
                line->setEchoMode(QLineEdit::Password);
            if (field.kind == SERVERFORM::kNumber || field.kind == SERVERFORM::kSeconds)
                line->setValidator(new QIntValidator(int(field.min), int(field.max), line));
            form->addRow(QString(field.label) + ":", line);
            widget = line;
        }
        widget->setObjectName(field.key);
        widget->setAccessibleName(field.label);
        fFields[field.key] = widget;
    }
    // Choosing TLS proposes the port of news over TLS, and back.
    auto *security = static_cast<QComboBox *>(fFields["Security"]);
    auto *port = static_cast<QLineEdit *>(fFields["Port"]);
    connect(security, &QComboBox::currentTextChanged, this, [port](const QString &choice) {
        port->setText(QString::fromStdString(
            SERVERFORM::portFor(choice.toStdString(), port->text().toStdString())));
    });
    // The user name and password only matter with a login.
    auto *login = static_cast<QCheckBox *>(fFields["Login"]);
    auto loginShown = [this](bool on) {
        fFields["Username"]->setEnabled(on);
        fFields["Password"]->setEnabled(on);
    };
    connect(login, &QCheckBox::toggled, this, loginShown);
    loginShown(login->isChecked());

    fProblem->setWordWrap(true);
    fProblem->setStyleSheet("color: #b00020");
    fProblem->hide();
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &ServerDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ServerDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(fProblem);
    layout->addWidget(buttons);
    setMinimumWidth(460);
}

QWidget *ServerDialog::field(const char *key) const {
    auto found = fFields.find(key);
    return found != fFields.end() ? found->second : nullptr;
}

std::map<std::string, std::string> ServerDialog::_values() const {
    std::map<std::string, std::string> values;
    for (const auto &[key, widget] : fFields) {
        if (auto *box = qobject_cast<QCheckBox *>(widget))
            values[key] = box->isChecked() ? SERVERFORM::kYes : SERVERFORM::kNo;
        else if (auto *choice = qobject_cast<QComboBox *>(widget))
            values[key] = choice->currentText().toStdString();
        else if (auto *line = qobject_cast<QLineEdit *>(widget))
            values[key] = line->text().trimmed().toStdString();
    }
    return values;
}

void ServerDialog::accept() {
    BARN::NODE server = fServer;
    std::string problem = SERVERFORM::check(_values(), &server, fCreate);
    bool saved = problem.empty() &&
                 (fCreate ? barn.serverCreate(&server) != BARN::kNodeNone : barn.nodeSave(&server));
    if (problem.empty() && !saved)
        problem = textFormat("Couldn't save server account '%s'.", server.name);
    if (!problem.empty()) {
        fProblem->setText(QString::fromStdString(problem));
        fProblem->show();
        return;
    }
    QDialog::accept();
    if (!fCreate)
        return;
    long long number = server.number;
    ALERT::ask(textFormat("Download a list of all newsgroups from server '%s'?\n\nIt is "
                          "recommended that you do this.  It takes awhile but it only needs "
                          "to be done once.",
                          server.name),
               {"Cancel", "Download groups"}, [number](size_t choice) {
                   if (choice == 1 && !news.requestServerGroupList(number))
                       ALERT::show(NEWS::kDuplicateText);
               });
}
