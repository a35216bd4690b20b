#include "app/Surface.h"

int main(int argc, char** argv) {
    serve(argc, argv);
}
