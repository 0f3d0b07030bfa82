#include <QtTest>
class tst_PackageArchive : public QObject
{
    Q_OBJECT
};
QTEST_GUILESS_MAIN(tst_PackageArchive)
#include "tst_packagearchive.moc"
