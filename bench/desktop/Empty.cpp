/// What any program costs before it does something.
int main() {
    return 0;
}
