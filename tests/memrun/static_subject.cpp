// A program into which nothing can be loaded.
int main() {
    return 0;
}
