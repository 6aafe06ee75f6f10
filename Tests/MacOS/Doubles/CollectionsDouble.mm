#include "Tests/MacOS/Doubles/FoundationDouble.h"

#include <algorithm>

namespace {

NSUInteger enumerate(const std::vector<id>& objects, NSFastEnumerationState* state,
                     id __unsafe_unretained buffer[], NSUInteger count)
{
    static unsigned long neverChanges = 0;
    state->mutationsPtr = &neverChanges;
    state->itemsPtr = buffer;
    NSUInteger given = 0;
    while (given < count && state->state < objects.size())
        buffer[given++] = objects[state->state++];
    return given;
}

}  // namespace

@implementation NSArray {
@public
    std::vector<id> _objects;
}

- (NSUInteger)count
{
    return _objects.size();
}

- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)count
{
    return enumerate(_objects, state, buffer, count);
}

@end

@implementation NSMutableArray

+ (instancetype)array
{
    return [[self alloc] init];
}

- (void)addObject:(id)object
{
    _objects.push_back(object);
}

@end

@implementation NSSet {
@public
    std::vector<id> _objects;
}

- (NSUInteger)count
{
    return _objects.size();
}

- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)count
{
    return enumerate(_objects, state, buffer, count);
}

@end

@implementation NSMutableSet

+ (instancetype)set
{
    return [[self alloc] init];
}

- (void)addObject:(id)object
{
    if (std::none_of(_objects.begin(), _objects.end(), [object](id other) { return [other isEqual:object]; }))
        _objects.push_back(object);
}

@end

@implementation NSDictionary {
@public
    std::vector<id> _keys;
    std::vector<id> _values;
}

+ (instancetype)dictionary
{
    return [[self alloc] init];
}

- (NSUInteger)count
{
    return _keys.size();
}

- (id)objectForKeyedSubscript:(id)key
{
    for (std::size_t i = 0; i < _keys.size(); ++i)
        if ([_keys[i] isEqual:key]) return _values[i];
    return nil;
}

- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)count
{
    return enumerate(_keys, state, buffer, count);
}

@end

// Stands for a dictionary of Core Foundation.
@interface PavoBridgedDictionary : NSDictionary
@end

@implementation PavoBridgedDictionary
@end

namespace pavo::test {

NSArray* makeArray(const std::vector<id>& objects)
{
    NSArray* const array = [[NSArray alloc] init];
    array->_objects = objects;
    return array;
}

NSSet* makeSet(const std::vector<id>& objects)
{
    NSSet* const set = [[NSSet alloc] init];
    set->_objects = objects;
    return set;
}

NSDictionary* makeDictionary(const std::map<std::string, id>& entries)
{
    NSDictionary* const dictionary = [[NSDictionary alloc] init];
    for (const auto& [key, value] : entries) {
        dictionary->_keys.push_back(makeString(key));
        dictionary->_values.push_back(value);
    }
    return dictionary;
}

std::vector<id> objectsIn(id<NSFastEnumeration> collection)
{
    std::vector<id> objects;
    for (id object in collection)
        objects.push_back(object);
    return objects;
}

}  // namespace pavo::test
