foreach(name IN ITEMS views outcomes streaming chain_sums marginals probability distribution running_sum draws sampling
                      projection permuted_copy gathered_entries mapped_exports measurement_members)
    velacamplix_concept(${name} FOLDER src/statevector/measurement)
endforeach()
