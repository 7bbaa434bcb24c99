// Deletes its arguments as Qt programs do.
#include <QFile>

int main(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (!QFile::remove(QFile::decodeName(argv[i])))
            return 1;
    }
    return 0;
}
