#include "Host/HostCommand.h"

int main(int count, char** arguments)
{
    return veltry::HostCommand::main({arguments, arguments + count});
}
