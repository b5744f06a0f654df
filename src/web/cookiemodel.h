#pragma once

#include <QAbstractTableModel>
#include <QPointer>

class CookieJar;

// Table of the cookies in a jar, for a cookie viewer: website, name, path, secure, expiry, value.
class CookieModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { WebsiteColumn = 0, NameColumn, PathColumn, SecureColumn, ExpiresColumn, ContentsColumn, ColumnCount };

    explicit CookieModel(CookieJar* cookieJar, QObject* parent = nullptr);

    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    bool removeRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;

private slots:
    void cookiesChanged();

private:
    QPointer<CookieJar> mCookieJar;
};
