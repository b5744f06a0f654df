#include "cookiemodel.h"

#include <QDateTime>
#include <QFont>
#include <QFontMetrics>
#include <QNetworkCookie>
#include <QSize>

#include "web/cookiejar.h"

CookieModel::CookieModel(CookieJar* cookieJar, QObject* parent)
    : QAbstractTableModel(parent)
    , mCookieJar(cookieJar)
{
    if (mCookieJar) {
        connect(mCookieJar, &CookieJar::cookiesChanged, this, &CookieModel::cookiesChanged);
        mCookieJar->load();
    }
}

QVariant CookieModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role == Qt::SizeHintRole) {
        const QFontMetrics metrics{QFont()};
        const int height = metrics.height() + metrics.height() / 3;
        const int width = metrics.horizontalAdvance(headerData(section, orientation, Qt::DisplayRole).toString());
        return QSize(width, height);
    }

    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
        switch (section) {
        case WebsiteColumn:
            return tr("Website");
        case NameColumn:
            return tr("Name");
        case PathColumn:
            return tr("Path");
        case SecureColumn:
            return tr("Secure");
        case ExpiresColumn:
            return tr("Expires");
        case ContentsColumn:
            return tr("Contents");
        default:
            return QVariant();
        }
    }
    return QAbstractTableModel::headerData(section, orientation, role);
}

QVariant CookieModel::data(const QModelIndex& index, int role) const
{
    if (!mCookieJar || (role != Qt::DisplayRole && role != Qt::EditRole))
        return QVariant();

    const QList<QNetworkCookie> cookies = mCookieJar->allCookies();
    if (index.row() < 0 || index.row() >= cookies.size())
        return QVariant();

    const QNetworkCookie& cookie = cookies.at(index.row());
    switch (index.column()) {
    case WebsiteColumn:
        return cookie.domain();
    case NameColumn:
        return cookie.name();
    case PathColumn:
        return cookie.path();
    case SecureColumn:
        return cookie.isSecure();
    case ExpiresColumn:
        return cookie.expirationDate();
    case ContentsColumn:
        return cookie.value();
    default:
        return QVariant();
    }
}

int CookieModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

int CookieModel::rowCount(const QModelIndex& parent) const
{
    return (parent.isValid() || !mCookieJar) ? 0 : mCookieJar->allCookies().count();
}

bool CookieModel::removeRows(int row, int count, const QModelIndex& parent)
{
    if (parent.isValid() || !mCookieJar || count <= 0 || row < 0)
        return false;
    QList<QNetworkCookie> cookies = mCookieJar->allCookies();
    const int lastRow = row + count - 1;
    if (lastRow >= cookies.count())
        return false;

    beginRemoveRows(parent, row, lastRow);
    for (int i = lastRow; i >= row; --i)
        cookies.removeAt(i);
    mCookieJar->setAllCookies(cookies);
    endRemoveRows();
    return true;
}

void CookieModel::cookiesChanged()
{
    beginResetModel();
    endResetModel();
}
