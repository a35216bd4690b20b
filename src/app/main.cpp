#include "app/Controller.h"

int main(int argc, char** argv) {
    serve(argc, argv);
}
