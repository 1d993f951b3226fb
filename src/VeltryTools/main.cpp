#include "VeltryTools/ToolsCommand.h"

int main(int count, char** arguments)
{
    return veltry::ToolsCommand::main({arguments, arguments + count});
}
